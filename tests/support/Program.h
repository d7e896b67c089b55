#pragma once

#include <QByteArray>
#include <QStringList>

/// What a finished run of vesk-admin left behind.
struct Run
{
    int status = -1; ///< exit status; -1 when it crashed or did not start
    QByteArray out;
    QByteArray err;
};

/// Runs the built vesk-admin with \a arguments and \a input on standard input.
Run runAdmin(const QStringList &arguments, const QByteArray &input = {});
