#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QXmlStreamWriter>

#include <initializer_list>
#include <utility>

/// The building blocks of the pages. All texts go through the platform's XML writer, which escapes
/// them; none is ever put together with markup by hand.
namespace vesk::report {

class Html
{
public:
    using Attributes = std::initializer_list<std::pair<const char *, QString>>;

    /// Begins a page. \a title is that of the window.
    explicit Html(const QString &title);

    /// The whole page, after which nothing can be added.
    QByteArray finish();

    void open(const char *tag, const Attributes &attributes = {});
    void close();
    void text(const QString &text) { m_xml.writeCharacters(text); }

    /// A paragraph of the class \a kind; none when \a text is empty.
    void paragraph(const QString &text, const char *kind);

    /// An element with nothing but a text, which may be empty.
    void leaf(const char *tag, const QString &text, const Attributes &attributes = {});

    /// The heads of the columns of a table, which must be open.
    void tableHead(const QStringList &heads);

    /// A text of a stranger: cleaned, and in an element that keeps letters that are written from
    /// right to left from turning what is around them. What is cut can be read in its tooltip.
    void stranger(const QString &text);

private:
    QByteArray m_page;
    QXmlStreamWriter m_xml;
};

/// An element as long as the object lives.
class Element
{
public:
    Element(Html &html, const char *tag, const Html::Attributes &attributes = {})
        : m_html(html)
    {
        m_html.open(tag, attributes);
    }
    ~Element() { m_html.close(); }
    Q_DISABLE_COPY_MOVE(Element)

private:
    Html &m_html;
};

} // namespace vesk::report
