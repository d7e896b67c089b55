#pragma once

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSettings>
#include <QString>

#include <memory>

namespace vesk {

/// What each program of the suite begins with: the standard streams, the application, the command
/// line, the configuration and the connection to the database.
class Program
{
public:
    /// \a name is also what the database is told of who connects.
    Program(const char *name, int &argc, char **argv);
    Q_DISABLE_COPY_MOVE(Program)

    /// Knows the options for help and for the configuration file. For more, before process().
    QCommandLineParser &parser() { return m_parser; }

    /// Reads the command line. Ends the program for an unknown option, and after the help.
    void process() { m_parser.process(m_app); }

    /// What becomes of a configuration file that is there, but may not be read.
    enum class Unreadable {
        Warn, ///< it counts as empty, after a message
        Refuse,
    };

    /// Reads the configuration file \a path and opens the connection. False after a message.
    bool connect(const QString &path, Unreadable unreadable);

    /// From now on, leaves out the driver's message that a statement could not be freed, and says
    /// in one line, once, that the connection is lost.
    static void leaveOutRepeats();

    /// The configuration, once connect() has read it.
    const QSettings &settings() const { return *m_settings; }

private:
    QCoreApplication m_app;
    QCommandLineParser m_parser;
    std::unique_ptr<QSettings> m_settings;
};

} // namespace vesk
