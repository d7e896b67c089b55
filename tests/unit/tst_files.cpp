#include "common/Gzip.h"
#include "common/LineReader.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace vesk;

namespace {

constexpr qsizetype kMax = LineReader::kMaxLineBytes;

QByteArray gzip(const QByteArray &data)
{
    QProcess program;
    program.start("gzip", { "-c" });
    program.write(data);
    program.closeWriteChannel();
    program.waitForFinished(-1);
    return program.readAllStandardOutput();
}

/// Lines of 0 to 4 KiB that hardly compress, together some chunks of the reader and more than pipes
/// hold. The same ones every time.
QByteArray manyLines()
{
    QRandomGenerator random(1);
    QByteArray text;
    for (int i = 0; i < 500; ++i) {
        for (quint32 length = random.bounded(4096U); length > 0; --length)
            text += static_cast<char>(random.bounded(' ', 256));
        text += '\n';
    }
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
        const auto row = [](const char *name, const QByteArray &stored, const QByteArray &content, bool intact = true,
                             const char *fileName = "a.gz") { QTest::newRow(name) << fileName << stored << content << intact; };
        const QByteArray many = manyLines();
        const QByteArray archive = gzip("one\ntwo\n");
        QByteArray wrongSum = archive;
        wrongSum[wrongSum.size() - 8] = static_cast<char>(~wrongSum[wrongSum.size() - 8]);
        // A second member whose first block has the reserved type 3.
        const QByteArray brokenMember("\x1f\x8b\x08\0\0\0\0\0\0\x03\x07\0\0\0\0\0\0\0\0", 19);

        row("empty", "", "", true, "a.log");
        row("no line feed at the end", "one\r\ntwo", "one\r\ntwo", true, "a.log");
        row("line feeds only", "\n\n", "\n\n", true, "a.log");
        row("NUL bytes", QByteArray("a\0b\n\0", 5), QByteArray("a\0b\n\0", 5), true, "a.log");
        row("long", many, many, true, "a.log");
        row("archive", archive, "one\ntwo\n");
        row("long archive", gzip(many), many);
        row("members", archive + gzip("") + gzip("three"), "one\ntwo\nthree");
        row("garbage after the archive", archive + "garbage", "one\ntwo\n");
        row("archive of nothing", gzip(""), "");
        row("archive named .GZ", archive, archive, true, "a.GZ");
        row("archive with a number", archive, archive, true, "a.gz.1");
        row("empty file named .gz", "", "", false);
        row("plain file named .gz", "one\n", "", false);
        row("wrong check sum", wrongSum, "one\ntwo\n", false);
        row("damaged member", archive + brokenMember, "one\ntwo\n", false);
    }

    void content()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, stored);
        QFETCH(QByteArray, content);
        QFETCH(bool, intact);
        const QString path = write(name, stored);
        bool flag = !intact;
        QVERIFY(readMaybeGzip(path, &flag) == content);
        QCOMPARE(flag, intact);
        QVERIFY(readMaybeGzip(path) == content);
        QVERIFY(pieces(path) == content.split('\n'));
        if (isGzipName(path)) {
            flag = !intact;
            QVERIFY(gunzip(stored, &flag) == content);
            QCOMPARE(flag, intact);
        }
    }

    void truncatedArchive()
    {
        const QByteArray many = manyLines();
        const QByteArray archive = gzip(many);
        const QString path = write("a.gz", archive.first(archive.size() / 2));
        bool intact = true;
        const QByteArray whole = readMaybeGzip(path, &intact);
        QVERIFY(!intact);
        for (const QByteArray &text : { whole, pieces(path).join('\n') }) {
            QVERIFY(text.size() > many.size() / 4 && text.size() < many.size());
            QVERIFY(many.startsWith(text));
        }
    }

    void unreadable_data()
    {
        QTest::addColumn<QString>("name");
        QDir(m_folder.path()).mkdir("folder.gz");
        for (const char *name : { "missing.log", "missing.gz", ".", "folder.gz" })
            QTest::newRow(name) << name;
    }

    void unreadable()
    {
        QFETCH(QString, name);
        isEmpty(m_folder.filePath(name));
    }

    void withoutGunzip()
    {
        const QString path = write("a.gz", gzip("one\n"));
        const QByteArray searchPath = qgetenv("PATH");
        const auto restore = qScopeGuard([&searchPath] { qputenv("PATH", searchPath); });
        qputenv("PATH", m_folder.path().toLocal8Bit());
        isEmpty(path);
    }

    void lineLength_data()
    {
        QTest::addColumn<qsizetype>("length");
        const qsizetype chunk = 256 * 1024; // read at a time; the line before takes 7 bytes
        for (const qsizetype length : { chunk - 8, chunk - 7, chunk - 6, 2 * chunk, kMax, kMax + 1, kMax + 2, kMax + chunk, 3 * kMax + 5 })
            QTest::addRow("%lld", static_cast<long long>(length)) << length;
    }

    /// Too long a line is cut after kMax + 1 bytes; whatever its length, its neighbours are read.
    void lineLength()
    {
        QFETCH(qsizetype, length);
        const QByteArray line = QByteArray(length - 1, 'a') + 'b';
        const QByteArray text = "before\n" + line + "\nafter\n" + line;
        const QList<QByteArray> expected { "before", line.left(kMax + 1), "after", line.left(kMax + 1) };
        QVERIFY(pieces(write("a.log", text)) == expected);
        QVERIFY(pieces(write("a.gz", gzip(text))) == expected);
    }

    /// Of an archive the compressed bytes count.
    void position()
    {
        for (const QString &path : { write("a.log", manyLines()), write("a.gz", gzip(manyLines())) }) {
            const qint64 size = QFileInfo(path).size();
            LineReader reader(path);
            QVERIFY(reader.next());
            QVERIFY(reader.position() > 0 && reader.position() < size);
            while (reader.next()) { }
            QCOMPARE(reader.position(), size);
            QCOMPARE(reader.size(), size);
        }
    }

    /// What is in a pipe is handed out before more comes.
    void pipe()
    {
        const QByteArray path = m_folder.filePath("pipe").toLocal8Bit();
        QCOMPARE(mkfifo(path.constData(), 0600), 0);
        QFile writer(path);
        QVERIFY(writer.open(QIODevice::ReadWrite | QIODevice::Unbuffered)); // does not wait for a reader
        QCOMPARE(writer.write("one\ntwo"), 7);
        LineReader reader(path);
        QCOMPARE(reader.next()->toByteArray(), QByteArray("one"));
        QCOMPARE(reader.position(), 0);
        QCOMPARE(reader.size(), 0);
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
        QCOMPARE(readMaybeGzip(path, &intact), QByteArray());
        QVERIFY(!intact);
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
