#pragma once

#include <QByteArray>

namespace vesk::analytics {

/// \a text with "%25" for every percent sign that no two hexadecimal digits follow. Then decoding
/// it (RFC 3986, section 2.1) keeps those signs as they are and decodes all escapes.
QByteArray withStrayPercentsEscaped(const QByteArray &text);

} // namespace vesk::analytics
