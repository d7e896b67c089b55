#include "nightly/LogContent.h"
#include "nightly/OldMarks.h"
#include "support/LogLines.h"
#include "support/Table.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>

using namespace vesk::nightly;

namespace {

/// \a count lines, a second apart.
QByteArrayList manyLines(int count)
{
    QByteArrayList lines;
    for (int i = 0; i < count; ++i)
        lines += logLine("192.0.2.1",
            "10/" + QTime(1, 0).addSecs(i).toString(Qt::ISODate).toLatin1() + " +0000");
    return lines;
}

/// A log of \a text that was last written two days ago.
RotatedLog written(const QString &folder, const QByteArray &text)
{
    QFile file(folder + "/log");
    file.open(QIODevice::WriteOnly);
    file.write(text);
    file.flush();
    file.setFileTime(QDateTime::currentDateTime().addDays(-2), QFile::FileModificationTime);
    return RotatedLog(file.fileName());
}

/// How a log of \a text relates to \a entries.
Likeness likeness(const QString &folder, const QByteArray &text, const QList<Entry> &entries)
{
    const RotatedLog log = written(folder, text);
    LogContent content(log);
    content.first();
    return compare(content, entries);
}

/// What is known of a log of \a lines.
Entry imported(const QString &folder, const QByteArrayList &lines)
{
    const QByteArray text = lines.join('\n') + '\n';
    const RotatedLog log = written(folder, text);
    LogContent content(log);
    Entry entry;
    entry.span = spanOf(content);
    entry.content = QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex();
    entry.bytes = text.size();
    entry.beginnings = content.beginnings();
    return entry;
}

} // namespace

class TestNightly : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }

    /// A log cut off after any line, or in one, is a beginning; with another last line it is none.
    void beginnings()
    {
        QTemporaryDir folder;
        QByteArrayList lines = manyLines(9000);
        lines.swapItemsAt(1, 8999); // a request that took long
        const Entry entry = imported(folder.path(), lines);
        QVERIFY(entry.beginnings.size() < 4 * 4600);
        for (const int count :
            { 1, 2, 1023, 1024, 1025, 2047, 2049, 3001, 4095, 4097, 6555, 8999 }) {
            const QByteArray text = lines.first(count).join('\n') + '\n';
            QVERIFY(likeness(folder.path(), text, { entry }).beginningOf);
            QVERIFY(likeness(folder.path(), text + lines[count].first(9), { entry }).beginningOf);
            const QByteArray later = text + logLine("192.0.2.1", "10/23:00:00 +0000") + '\n';
            const Likeness other = likeness(folder.path(), later, { entry });
            QVERIFY(!other.beginningOf && !other.same && other.continues.isEmpty());
        }
        QByteArrayList changed = lines.first(8000);
        changed[7900].replace("192.0.2.1", "192.0.2.2");
        QVERIFY(!likeness(folder.path(), changed.join('\n') + '\n', { entry }).beginningOf);
    }

    void likenesses()
    {
        QTemporaryDir folder;
        const QByteArrayList lines = manyLines(3);
        QList<Entry> entries;
        for (const int count : { 1, 2, 3 })
            entries += imported(folder.path(), lines.first(count));
        const Likeness two
            = likeness(folder.path(), lines.first(2).join('\n') + '\n', entries.first(2));
        QCOMPARE(two.same->bytes, entries[1].bytes);
        QCOMPARE(two.continues.size(), 1);
        const Likeness four = likeness(folder.path(), lines.join('\n') + "\nmore", entries);
        QVERIFY(!four.same && !four.beginningOf);
        QCOMPARE(four.continues.size(), 3);
        QCOMPARE(four.continues.first().bytes, entries[2].bytes);
    }

    void lineages_data()
    {
        const Table row;
        row("plain", "/a/x.log", "/a/x.log");
        row("number", "/a/x.log.1", "/a/x.log");
        row("archive", "/a/x.log.12.gz", "/a/x.log");
        row("date", "/a/x.log-20260310.zst", "/a/x.log");
        row("date and hour", "/a/x.log-2026-03-10-17", "/a/x.log");
        row("another server", "/a/x.log-web1.2", "/a/x.log-web1");
    }

    void lineages()
    {
        QFETCH(QByteArray, text);
        QTEST(lineage(QString::fromLatin1(text)), "expected");
    }

    void oldMarks()
    {
        QTemporaryDir folder;
        qputenv("STATE_DIRECTORY", folder.path().toUtf8());
        QDir(folder.path()).mkdir("imported");
        QFile file(folder.path() + "/imported/a.example");
        file.open(QIODevice::WriteOnly);
        file.write("aa 100 /var/log/a b.log\naa 300 name\nbb 5 name\nnonsense\n");
        file.close();
        const auto marks = OldMarks::read("a.example");
        const qint64 large = (qint64 { 1 } << 32) + 300;
        QCOMPARE(marks->imported("aa", 99), 0);
        QCOMPARE(marks->imported("aa", 299), 100);
        QCOMPARE(marks->imported("aa", 400), 300);
        QCOMPARE(marks->imported("aa", large), large);
        QCOMPARE(marks->imported("cc", 300), 0);
        QVERIFY(OldMarks::read("b.example")->isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestNightly)
#include "tst_nightly.moc"
