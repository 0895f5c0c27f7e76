// Any update feed: our reader chooses what two slow readings choose, which first make a tree of the whole feed and
// pick the items out of it afterwards, and a second look finds the same.

#include "fuzz/fuzz.h"
#include "update/appcast.h"
#include "update/compareversions.h"

#include <QBuffer>
#include <QDomDocument>
#include <QRegularExpression>
#include <QSet>
#include <QXmlStreamReader>

#include <vector>

namespace
{

const QString sparkle = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

struct Element
{
    QString name; ///< without its prefix
    QString space;
    QString url;
    QString version;
    QString text; ///< what stands before the first element in it
    std::vector<Element> children;

    bool isNotes() const
    {
        return name == QLatin1String("releaseNotesLink") && space == sparkle;
    }
};

/// What a tree offers.
struct Offer
{
    QString version;
    QString url;
    QString notes;
};

class Items final
{
public:
    explicit Items(const Element& document)
    {
        find(document);
    }

    const Offer& newest() const
    {
        return m_newest;
    }

    /// Whether there is an element where the address of the notes should stand, which ends the reading.
    bool isStopped() const
    {
        return m_stopped;
    }

private:
    void find(const Element& element)
    {
        if (element.name == QLatin1String("item")) {
            readItem(element, Offer());
            return;
        }
        for (const Element& child : element.children)
            find(child);
    }

    /// The item ends with its first enclosure, or, since one may stand in another, with the innermost of these:
    /// what follows is no part of it, but other items may be there.
    void readItem(const Element& part, Offer offer)
    {
        for (auto child = part.children.begin(); child != part.children.end() && !m_stopped; ++child) {
            if (child->isNotes()) {
                offer.notes = child->text.trimmed();
                m_stopped = !child->children.empty();
            } else if (child->name == QLatin1String("enclosure")) {
                offer.url = child->url;
                offer.version = child->version;
                readItem(*child, offer);
                while (++child != part.children.end() && !m_stopped)
                    find(*child);
                return;
            }
        }
        // Two versions are compared as fuzz/compareversions_fuzz.cpp has it.
        if (qtsparkle::IsOlder(m_newest.version, offer.version))
            m_newest = offer;
    }

    Offer m_newest;
    bool m_stopped = false;
};

bool hasOddBlank(const QString& value)
{
    return value.contains(u'\t') || value.contains(u'\n') || value.contains(u'\r');
}

/// Reads on to the end of the element, or as far as it goes. What the other parser's document loses is not plain:
/// types and their entities, attributes that differ in their prefix only, and which blanks in an attribute's value
/// were written as references (the others are spaces).
void readTree(QXmlStreamReader& reader, Element& element, bool& isPlain)
{
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement: {
            const QXmlStreamAttributes attributes = reader.attributes();
            Element child;
            child.name = reader.name().toString();
            child.space = reader.namespaceUri().toString();
            QSet<QStringRef> names;
            for (const QXmlStreamAttribute& attribute : attributes) {
                names << attribute.name();
                isPlain = isPlain && !hasOddBlank(attribute.value().toString());
                if (attribute.namespaceUri().isEmpty() && attribute.name() == QLatin1String("url"))
                    child.url = attribute.value().toString();
                if (attribute.namespaceUri() == sparkle && attribute.name() == QLatin1String("version"))
                    child.version = attribute.value().toString();
            }
            isPlain = isPlain && names.size() == attributes.size();
            readTree(reader, child, isPlain);
            element.children.push_back(child);
            break;
        }
        case QXmlStreamReader::Characters:
        case QXmlStreamReader::EntityReference:
            if (element.children.empty())
                element.text += reader.text();
            break;
        case QXmlStreamReader::DTD:
            isPlain = false;
            break;
        case QXmlStreamReader::EndElement:
            return;
        default:
            break;
        }
    }
}

QString withSpaces(QString value)
{
    return value.replace(QRegularExpression(QStringLiteral("\r\n|[\t\n\r]")), QStringLiteral(" "));
}

Element treeOf(const QDomElement& dom)
{
    Element element;
    element.name = dom.localName();
    element.space = dom.namespaceURI();
    element.url = withSpaces(dom.attribute(QStringLiteral("url")));
    element.version = withSpaces(dom.attributeNS(sparkle, QStringLiteral("version")));
    for (QDomNode node = dom.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (node.isElement())
            element.children.push_back(treeOf(node.toElement()));
        else if (node.isCharacterData() && !node.isComment() && element.children.empty())
            element.text += node.toCharacterData().data();
    }
    return element;
}

QString withoutBlanks(QString text)
{
    return text.remove(QRegularExpression(QStringLiteral("\\s")));
}

/// By the stream reader, whose word on what is well-formed is final: everything is compared, also what a feed
/// offers up to its fault.
void compareWithStream(const QByteArray& content, const qtsparkle::AppCast& feed, bool loaded, bool& isPlain)
{
    QXmlStreamReader reader(content);
    Element document;
    readTree(reader, document, isPlain);
    const Items items(document);
    fuzz::require(loaded == (!reader.hasError() && !items.isStopped()), "success");
    fuzz::require(feed.error_reason ==
                      (items.isStopped() ? QStringLiteral("Expected character data.") : reader.errorString()),
                  "reason");
    fuzz::require(feed.version == items.newest().version, "version");
    fuzz::require(feed.download_url == items.newest().url, "address");
    fuzz::require(feed.release_notes_url == items.newest().notes, "notes' address");
}

/// By a document of the other XML parser, with a grammar, a decoder and a count of namespaces of its own. It takes a
/// slightly different set of texts, so that only those are compared that both take; it also drops blanks between
/// references and comments, so that those in the notes' address are left to the other comparison.
void compareWithDocument(const QByteArray& content, const qtsparkle::AppCast& feed)
{
    QDomDocument dom;
    if (!dom.setContent(content, true))
        return;
    Element document;
    document.children.push_back(treeOf(dom.documentElement()));
    const Items items(document);
    fuzz::require(!items.isStopped(), "success for the document");
    fuzz::require(feed.version == items.newest().version, "version in the document");
    fuzz::require(feed.download_url == items.newest().url, "address in the document");
    fuzz::require(withoutBlanks(feed.release_notes_url) == withoutBlanks(items.newest().notes),
                  "notes' address in the document");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QByteArray content = fuzz::bytes(data, size);
    qtsparkle::AppCast feed;
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadOnly);
    const bool loaded = feed.Load(&buffer);
    fuzz::require(feed.version.isEmpty() || qtsparkle::IsOlder(QString(), feed.version), "version");

    bool isPlain = true;
    compareWithStream(content, feed, loaded, isPlain);
    if (loaded && isPlain)
        compareWithDocument(content, feed);

    buffer.seek(0);
    qtsparkle::AppCast again;
    again.version = QStringLiteral("99");
    fuzz::require(again.Load(&buffer) == loaded && again.version == feed.version &&
                      again.download_url == feed.download_url && again.release_notes_url == feed.release_notes_url &&
                      again.error_reason == feed.error_reason,
                  "second look");
    return 0;
}
