#include "update/appcast.h"

#include "update/compareversions.h"

#include <QXmlStreamReader>

namespace qtsparkle
{

namespace
{

const QString sparkleNamespace = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

} // namespace

bool AppCast::Load(QIODevice* device)
{
    *this = AppCast();
    QXmlStreamReader reader(device);
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && reader.name() == QLatin1String("item"))
            LoadItem(reader);
    }
    error_reason = reader.errorString();
    return !reader.hasError();
}

/// Reads up to the next end tag that is not skipped, which is the enclosure's own: feeds in use name the
/// notes before it, and nothing after it belongs to the item any more.
void AppCast::LoadItem(QXmlStreamReader& reader)
{
    AppCast candidate;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::EndElement)
            break;
        if (token != QXmlStreamReader::StartElement)
            continue;
        if (reader.name() == QLatin1String("releaseNotesLink") && reader.namespaceUri() == sparkleNamespace) {
            candidate.release_notes_url = reader.readElementText().trimmed();
        } else if (reader.name() == QLatin1String("enclosure")) {
            candidate.download_url = reader.attributes().value(QStringLiteral("url")).toString();
            candidate.version = reader.attributes().value(sparkleNamespace, QStringLiteral("version")).toString();
        } else {
            reader.skipCurrentElement();
        }
    }
    if (IsOlder(version, candidate.version)) {
        version = candidate.version;
        download_url = candidate.download_url;
        release_notes_url = candidate.release_notes_url;
    }
}

} // namespace qtsparkle
