#include "analytics/PercentEncoding.h"

namespace vesk::analytics {

namespace {

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

/// Whether an escape begins at \a i.
bool isEscape(const QByteArray &text, qsizetype i)
{
    return i + 2 < text.size() && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2]);
}

} // namespace

QByteArray withStrayPercentsEscaped(const QByteArray &text)
{
    QByteArray result;
    qsizetype copied = 0;
    for (qsizetype i = text.indexOf('%'); i >= 0; i = text.indexOf('%', i + 1)) {
        if (isEscape(text, i))
            continue;
        result += text.sliced(copied, i + 1 - copied) + "25";
        copied = i + 1;
    }
    return copied == 0 ? text : result + text.sliced(copied);
}

} // namespace vesk::analytics
