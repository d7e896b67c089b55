#pragma once

#include <QString>

namespace vesk {

/// \a host in the form in which two hosts are compared, in lower case: an international name is
/// decoded where the platform trusts its ending, and in the ASCII form of RFC 5891 elsewhere, as in
/// the host of a QUrl. Both spellings of a name give the same. Other ASCII stays as it is, and so
/// does what is no host name.
QString comparableHost(const QString &host);

} // namespace vesk
