#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/// A database of its own on the server that scripts/with-postgres has started, with a configuration
/// file for it. It is the default connection while the object lives, and stays on the server. With
/// the script VESK_TEST_PARTITION of the environment it has its requests in partitions.
class TestDatabase
{
public:
    enum Schema { Empty, Migrated };

    /// Ends the test program when the server cannot be reached.
    explicit TestDatabase(Schema schema = Migrated);
    ~TestDatabase();
    Q_DISABLE_COPY_MOVE(TestDatabase)

    /// The path of the configuration file.
    QString config() const;

    /// The path of a new file \a name with \a content.
    QString file(const QString &name, const QByteArray &content) const;

private:
    QTemporaryDir m_folder;
};

/// The rows that \a statement gives, one string each, columns separated by "|", NULL as "-". Fails
/// the running test when the statement fails.
QStringList rows(const QString &statement);

/// The single value that \a statement gives.
QString value(const QString &statement);

/// Executes \a statement; fails the running test when that fails.
void execute(const QString &statement);
