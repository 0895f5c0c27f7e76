#include "shell/placementbookmarks.h"

#include <QDir>
#include <QUrl>
#include <QXmlStreamReader>

#include <algorithm>

namespace placement
{

namespace
{

/// Characters that may stand in the name of a folder, but neither in one line nor in XML.
bool breaksFile(QChar c)
{
    constexpr ushort firstNoncharacter = 0xfffe;
    return c < QLatin1Char(' ') || c.unicode() >= firstNoncharacter;
}

/// What the folder is called in a list.
QString nameOf(const QString& folder)
{
    QString name = QDir(folder).dirName();
    std::replace_if(name.begin(), name.end(), breaksFile, QLatin1Char(' '));
    return name;
}

/// The place in @p text behind which only blanks stand before @p at on the line; @p at where more does.
int lineBegin(const QByteArray& text, int at)
{
    int begin = at;
    while (begin > 0 && (text.at(begin - 1) == ' ' || text.at(begin - 1) == '\t'))
        --begin;
    return begin == 0 || text.at(begin - 1) == '\n' ? begin : at;
}

/// The begin of the next line where only blanks follow on this one; @p at where more does.
int lineEnd(const QByteArray& text, int at)
{
    int end = at;
    while (end < text.size() && QByteArray(" \t\r").contains(text.at(end)))
        ++end;
    return end < text.size() && text.at(end) == '\n' ? end + 1 : at;
}

/// Reads XML and knows where in the file each element stands, in bytes.
class PlacesReader final
{
public:
    struct Place
    {
        QString url;
        QString title;
        int begin;
        int end;
    };

    explicit PlacesReader(const QByteArray& content)
        : m_text(QString::fromUtf8(content))
        , m_xml(m_text)
    {
        m_xml.setNamespaceProcessing(false); // prefixes are none of ours, declared or not
        m_valid = m_text.toUtf8() == content && read();
    }

    bool isValid() const
    {
        return m_valid;
    }

    const QVector<Place>& places() const
    {
        return m_places;
    }

    /// Where the tag stands that closes the list.
    int listEnd() const
    {
        return m_listEnd;
    }

private:
    bool read()
    {
        while (!m_xml.atEnd()) {
            m_xml.readNext();
            if (m_xml.isStartDocument() && !isUtf8(m_xml.documentEncoding().toString()))
                return false;
            if (!m_xml.entityDeclarations().isEmpty())
                return false; // an element could come out of one, and would stand nowhere
            if (m_xml.isStartElement())
                enter();
            else if (m_xml.isCharacters() && m_depth == titleDepth && m_inTitle)
                m_places.last().title += m_xml.text();
            else if (m_xml.isEndElement())
                leave();
        }
        return !m_xml.hasError() && m_isList && m_listEnd > 0;
    }

    static bool isUtf8(const QString& encoding)
    {
        return encoding.isEmpty() || encoding.compare(QLatin1String("utf-8"), Qt::CaseInsensitive) == 0;
    }

    void enter()
    {
        ++m_depth;
        const QStringRef name = m_xml.qualifiedName();
        if (m_depth == 1) {
            m_isList = name == QLatin1String("xbel");
        } else if (m_depth == placeDepth) {
            m_inPlace = name == QLatin1String("bookmark");
            if (m_inPlace)
                m_places.append({m_xml.attributes().value(QLatin1String("href")).toString(), {}, tagBegin(), 0});
        } else if (m_depth == titleDepth) {
            m_inTitle = m_inPlace && name == QLatin1String("title");
        }
    }

    void leave()
    {
        if (m_depth == 1)
            m_listEnd = m_text.midRef(charBegin(), 2) == QLatin1String("</") ? tagBegin() : 0;
        else if (m_depth == placeDepth && m_inPlace)
            m_places.last().end = bytes(static_cast<int>(m_xml.characterOffset()));
        --m_depth;
    }

    /// The begin of the tag that was read last: no other one stands inside a tag.
    int charBegin() const
    {
        return m_text.lastIndexOf(QLatin1Char('<'), static_cast<int>(m_xml.characterOffset()) - 1);
    }

    int tagBegin() const
    {
        return bytes(charBegin());
    }

    int bytes(int characters) const
    {
        return m_text.leftRef(characters).toUtf8().size();
    }

    static constexpr int placeDepth = 2;
    static constexpr int titleDepth = 3;

    QString m_text;
    QXmlStreamReader m_xml;
    QVector<Place> m_places;
    int m_depth = 0;
    int m_listEnd = 0;
    bool m_isList = false;
    bool m_inPlace = false;
    bool m_inTitle = false;
    bool m_valid = false;
};

} // namespace

QString folderUrl(const QString& path)
{
    // What a path may hold as it stands; everything else would be read differently by somebody.
    const QByteArray kept = QByteArrayLiteral("/!$&'()*+,:=@");
    const QString absolute = path.startsWith(QLatin1Char('/')) ? path : QLatin1Char('/') + path;
    return QStringLiteral("file://") + QString::fromLatin1(QUrl::toPercentEncoding(absolute, kept));
}

QString folderOfUrl(const QString& url)
{
    const QUrl parsed(url);
    return parsed.isLocalFile() ? QDir::cleanPath(parsed.toLocalFile()) : QString();
}

Bookmarks Bookmarks::fromGtk(const QByteArray& content)
{
    Bookmarks bookmarks;
    bookmarks.m_valid = !content.contains('\0'); // GTK reads no further
    if (!bookmarks.m_valid)
        return bookmarks;
    bookmarks.m_content = content;
    bookmarks.m_addAt = content.size();
    int begin = 0;
    while (begin < content.size()) {
        const int lineFeed = content.indexOf('\n', begin);
        const int end = lineFeed < 0 ? content.size() : lineFeed + 1;
        const QString line = QString::fromUtf8(content.mid(begin, end - begin)).remove(QLatin1Char('\n'));
        const QString folder = folderOfUrl(line.section(QLatin1Char(' '), 0, 0));
        const QString label = line.section(QLatin1Char(' '), 1);
        bookmarks.m_entries.append({folder, label.isEmpty() ? nameOf(folder) : label, begin, end, false});
        begin = end;
    }
    return bookmarks;
}

Bookmarks Bookmarks::fromPlaces(const QByteArray& content)
{
    Bookmarks bookmarks;
    const PlacesReader reader(content);
    bookmarks.m_valid = reader.isValid();
    if (!bookmarks.m_valid)
        return bookmarks;
    bookmarks.m_content = content;
    bookmarks.m_addAt = lineBegin(content, reader.listEnd());
    for (const auto& place : reader.places()) {
        const QString folder = folderOfUrl(place.url);
        const int begin = lineBegin(content, place.begin);
        const int end = begin == 0 || content.at(begin - 1) == '\n' ? lineEnd(content, place.end) : place.end;
        bookmarks.m_entries.append({folder, place.title.isEmpty() ? nameOf(folder) : place.title, begin, end, false});
    }
    return bookmarks;
}

QByteArray Bookmarks::gtkEntry(const QString& folder)
{
    return (folderUrl(folder) + QLatin1Char(' ') + nameOf(folder)).toUtf8() + '\n';
}

QByteArray Bookmarks::placesEntry(const QString& folder, const QString& icon)
{
    const QString image = icon.isEmpty() ? QStringLiteral("folder") : icon;
    return " <bookmark href=\"" + folderUrl(folder).toHtmlEscaped().toUtf8() +
           "\">\n"
           "  <title>" +
           nameOf(folder).toHtmlEscaped().toUtf8() +
           "</title>\n"
           "  <info>\n"
           "   <metadata owner=\"http://freedesktop.org\">\n"
           "    <bookmark:icon xmlns:bookmark=\"http://www.freedesktop.org/standards/desktop-bookmarks\" name=\"" +
           image.toHtmlEscaped().toUtf8() +
           "\"/>\n"
           "   </metadata>\n"
           "  </info>\n"
           " </bookmark>\n";
}

bool Bookmarks::isValid() const
{
    return m_valid;
}

bool Bookmarks::contains(const QString& folder) const
{
    const QString name = nameOf(folder);
    return std::any_of(
               m_entries.begin(), m_entries.end(),
               [&](const Entry& entry) { return !entry.removed && (entry.folder == folder || entry.name == name); }) ||
           std::any_of(m_added.begin(), m_added.end(),
                       [&](const Added& added) { return added.folder == folder || nameOf(added.folder) == name; });
}

void Bookmarks::remove(const QString& folder)
{
    for (Entry& entry : m_entries)
        entry.removed = entry.removed || entry.folder == folder;
    m_added.erase(
        std::remove_if(m_added.begin(), m_added.end(), [&](const Added& added) { return added.folder == folder; }),
        m_added.end());
}

void Bookmarks::add(const QString& folder, const QByteArray& entry)
{
    if (!m_valid)
        return;
    bool putBack = false;
    for (Entry& old : m_entries) {
        if (old.removed && old.folder == folder) {
            old.removed = false;
            putBack = true;
        }
    }
    if (!putBack)
        m_added.append({folder, entry});
}

QByteArray Bookmarks::content() const
{
    QByteArray result;
    int taken = 0;
    const auto takeUntil = [&](int end) {
        result += m_content.mid(taken, end - taken);
        taken = end;
    };
    for (const Entry& entry : m_entries) {
        if (!entry.removed)
            continue;
        takeUntil(entry.begin);
        taken = entry.end;
    }
    takeUntil(m_addAt);
    if (!m_added.isEmpty() && !result.isEmpty() && !result.endsWith('\n'))
        result += '\n';
    for (const Added& added : m_added)
        result += added.entry;
    takeUntil(m_content.size());
    return result;
}

} // namespace placement
