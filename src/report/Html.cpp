#include "report/Html.h"

#include "common/Resource.h"
#include "common/Text.h"

namespace vesk::report {

namespace {

constexpr qsizetype kMostLetters = 100;

/// The pattern with which unverified browsers are drawn.
void writeHatch(Html &html)
{
    const Element svg(html, "svg",
        { { "class", QStringLiteral("defs") }, { "width", QStringLiteral("0") },
            { "height", QStringLiteral("0") }, { "aria-hidden", QStringLiteral("true") } });
    const Element defs(html, "defs");
    const Element pattern(html, "pattern",
        { { "id", QStringLiteral("hatch") }, { "width", QStringLiteral("4") },
            { "height", QStringLiteral("4") },
            { "patternUnits", QStringLiteral("userSpaceOnUse") } });
    html.leaf("path", {}, { { "d", QStringLiteral("M-1 1l2-2M0 4l4-4M3 5l2-2") } });
}

} // namespace

Html::Html(const QString &title)
    : m_xml(&m_page)
{
    m_xml.writeDTD(QStringLiteral("<!DOCTYPE html>\n"));
    open("html", { { "lang", QStringLiteral("en") } });
    open("head");
    const auto meta = [this](const char *name, const char *value, const char *kind = "name") {
        m_xml.writeEmptyElement(QStringLiteral("meta"));
        m_xml.writeAttribute(QLatin1String(kind), QLatin1String(name));
        m_xml.writeAttribute(QStringLiteral("content"), QLatin1String(value));
    };
    m_xml.writeEmptyElement(QStringLiteral("meta"));
    m_xml.writeAttribute(QStringLiteral("charset"), QStringLiteral("utf-8"));
    meta("Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'", "http-equiv");
    meta("viewport", "width=device-width, initial-scale=1");
    meta("color-scheme", "light dark");
    meta("referrer", "no-referrer");
    meta("robots", "noindex");
    leaf("title", clean(title));
    leaf("style", resourceText(QStringLiteral(":/report/page.css")));
    close();
    open("body");
    writeHatch(*this);
}

QByteArray Html::finish()
{
    m_xml.writeEndDocument();
    // As XML has no elements without an end and no attributes without a value. All texts have their
    // angle brackets and quotation marks escaped.
    m_page.replace("/>", ">").replace(" open=\"\"", " open");
    return m_page + '\n';
}

void Html::open(const char *tag, const Attributes &attributes)
{
    m_xml.writeStartElement(QLatin1String(tag));
    for (const auto &[name, value] : attributes)
        m_xml.writeAttribute(QLatin1String(name), value);
}

void Html::close()
{
    text({}); // or an empty element would be abbreviated, which HTML does not know
    m_xml.writeEndElement();
}

void Html::leaf(const char *tag, const QString &text, const Attributes &attributes)
{
    open(tag, attributes);
    m_xml.writeCharacters(text);
    close();
}

void Html::paragraph(const QString &text, const char *kind)
{
    if (!text.isEmpty())
        leaf("p", text, { { "class", QLatin1String(kind) } });
}

void Html::tableHead(const QStringList &heads)
{
    open("thead");
    open("tr");
    for (const QString &head : heads)
        leaf("th", head, { { "scope", QStringLiteral("col") } });
    close();
    close();
}

void Html::stranger(const QString &text)
{
    const QString whole = clean(text);
    const QList<uint> letters = whole.toUcs4();
    QString shown = whole;
    if (letters.size() > kMostLetters)
        shown = QString::fromUcs4(
                    reinterpret_cast<const char32_t *>(letters.constData()), kMostLetters - 1)
            + QChar(0x2026);
    open("bdi");
    if (text.startsWith(u'/')) // a path begins on the left, whatever letters follow
        m_xml.writeAttribute(QStringLiteral("dir"), QStringLiteral("ltr"));
    if (letters.size() > kMostLetters / 3)
        m_xml.writeAttribute(QStringLiteral("title"), whole);
    m_xml.writeCharacters(shown);
    close();
}

} // namespace vesk::report
