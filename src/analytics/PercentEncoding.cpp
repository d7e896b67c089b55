#include "analytics/PercentEncoding.h"

namespace vesk::analytics {

namespace {

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

} // namespace

QByteArray withStrayPercentsEscaped(const QByteArray &text)
{
    QByteArray result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        result += text[i];
        const bool isEscape
            = i + 2 < text.size() && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2]);
        if (text[i] == '%' && !isEscape)
            result += "25";
    }
    return result;
}

} // namespace vesk::analytics
