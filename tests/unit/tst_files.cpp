#include "common/Gzip.h"
#include "common/LineLimit.h"
#include "common/LineReader.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

using namespace vesk;

namespace {

constexpr qsizetype kMax = kMaxLineBytes;

QByteArray gzip(const QByteArray &data)
{
    QProcess program;
    program.start("gzip", { "-c" });
    program.write(data);
    program.closeWriteChannel();
    program.waitForFinished(-1);
    return program.readAllStandardOutput();
}

/// Bytes that hardly compress, some chunks of the reader and more than pipes hold. The same ones
/// every time.
QByteArray manyLines()
{
    QRandomGenerator random(1);
    QByteArray text(1000000, Qt::Uninitialized);
    for (char &c : text)
        c = static_cast<char>(random.bounded(256));
    return text;
}

QList<QByteArray> pieces(const QString &path)
{
    LineReader reader(path);
    QList<QByteArray> result;
    while (const auto piece = reader.next())
        result += piece->toByteArray();
    if (reader.next())
        result += "piece after the end";
    return result;
}

} // namespace

class TestFiles : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }

    /// The same files for both readers: readMaybeGzip and LineReader.
    void content_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("intact");
        const auto row = [](const char *fileName, const QByteArray &stored,
                             const QByteArray &content, bool intact = true) {
            QTest::addRow("%s: %s", fileName, stored.left(9).toPercentEncoding().constData())
                << fileName << stored << content << intact;
        };
        const QByteArray many = manyLines();
        for (const QByteArray &text : { QByteArray(), QByteArray("one\r\ntwo"), QByteArray("\n\n"),
                 QByteArray("a\0b\n\0", 5), many })
            row("a.log", text, text);
        const QByteArray archive = gzip("one\ntwo\n");
        for (const char *fileName : { "a.GZ", "a.gz.1" })
            row(fileName, archive, archive);
        row("many.gz", gzip(many), many);
        row("members.gz", archive + gzip("") + gzip("three"), "one\ntwo\nthree");
        row("garbage-behind.gz", archive + "garbage", "one\ntwo\n");
        row("nothing.gz", gzip(""), "");
        row("empty.gz", "", "", false);
        row("plain.gz", "one\n", "", false);
        QByteArray wrongSum = archive;
        wrongSum[wrongSum.size() - 8] = static_cast<char>(~wrongSum[wrongSum.size() - 8]);
        row("wrong-sum.gz", wrongSum, "one\ntwo\n", false);
        // A second member whose first block has the reserved type 3.
        const QByteArray brokenMember("\x1f\x8b\x08\0\0\0\0\0\0\x03\x07\0\0\0\0\0\0\0\0", 19);
        row("damaged-member.gz", archive + brokenMember, "one\ntwo\n", false);
    }

    void content()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, stored);
        QFETCH(QByteArray, content);
        QFETCH(bool, intact);
        const QString path = write(name, stored);
        bool flag = !intact;
        QVERIFY(readMaybeGzip(path, &flag) == content && flag == intact);
        QVERIFY(readMaybeGzip(path) == content);
        QVERIFY(pieces(path) == content.split('\n'));
        flag = !intact;
        QVERIFY(!isGzipName(path) || (gunzip(stored, &flag) == content && flag == intact));
    }

    void truncatedArchive()
    {
        const QByteArray many = manyLines();
        const QByteArray archive = gzip(many);
        const QString path = write("a.gz", archive.first(archive.size() / 2));
        bool intact = true;
        const QByteArray whole = readMaybeGzip(path, &intact);
        QVERIFY(!intact);
        for (const QByteArray &text : { whole, pieces(path).join('\n') })
            QVERIFY(text.size() > many.size() / 4 && text.size() < many.size()
                && many.startsWith(text));
    }

    void unreadable()
    {
        QDir(m_folder.path()).mkdir("folder.gz");
        for (const char *name : { "missing.log", "missing.gz", ".", "folder.gz" })
            isEmpty(m_folder.filePath(name));

        const QString path = write("a.gz", gzip("one\n"));
        const auto restore
            = qScopeGuard([searchPath = qgetenv("PATH")] { qputenv("PATH", searchPath); });
        qputenv("PATH", m_folder.path().toLocal8Bit()); // where there is no gunzip
        isEmpty(path);
    }

    /// Too long a line is cut after kMax + 1 bytes; whatever its length, its neighbours are read.
    void lineLength()
    {
        const qsizetype chunk = 256 * 1024; // read at a time; the line before takes 7 bytes
        for (const qsizetype length : { chunk - 8, chunk - 7, chunk - 6, 2 * chunk, kMax, kMax + 1,
                 kMax + 2, kMax + chunk, 3 * kMax + 5 }) {
            const QByteArray line = QByteArray(length - 1, 'a') + 'b';
            const QByteArray text = "before\n" + line + "\nafter\n" + line;
            const QList<QByteArray> expected { "before", line.left(kMax + 1), "after",
                line.left(kMax + 1) };
            QVERIFY2(pieces(write("a.log", text)) == expected, qPrintable(QString::number(length)));
            QVERIFY2(
                pieces(write("a.gz", gzip(text))) == expected, qPrintable(QString::number(length)));
        }
    }

    /// Of an archive the compressed bytes count.
    void position()
    {
        for (const QString &path :
            { write("a.log", manyLines()), write("a.gz", gzip(manyLines())) }) {
            const qint64 size = QFileInfo(path).size();
            LineReader reader(path);
            QVERIFY(reader.next());
            QVERIFY(reader.position() > 0 && reader.position() < size);
            while (reader.next()) { }
            QCOMPARE(reader.position(), size);
            QCOMPARE(reader.size(), size);
        }
    }

    /// A reader given up half-way ends its child process, or Qt warns.
    void abandonedReader()
    {
        LineReader reader(write("a.gz", gzip(manyLines().repeated(20))));
        QVERIFY(reader.next());
    }

private:
    static void isEmpty(const QString &path)
    {
        bool intact = true;
        QVERIFY2(readMaybeGzip(path, &intact).isEmpty() && !intact, qPrintable(path));
        QCOMPARE(pieces(path), QList<QByteArray> { {} });
    }

    QString write(const QString &name, const QByteArray &content)
    {
        QFile file(m_folder.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write %s", qPrintable(file.fileName()));
        return file.fileName();
    }

    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(TestFiles)
#include "tst_files.moc"
