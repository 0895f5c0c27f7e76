// Any update feed: what is found is a version with its addresses or nothing, and a second look finds the same.

#include "fuzz/fuzz.h"
#include "update/appcast.h"
#include "update/compareversions.h"

#include <QBuffer>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QByteArray content = fuzz::bytes(data, size);
    qtsparkle::AppCast feed;
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadOnly);
    const bool loaded = feed.Load(&buffer);
    fuzz::require(loaded == feed.error_reason.isEmpty(), "reason");
    fuzz::require(!feed.version.isEmpty() || (feed.download_url.isEmpty() && feed.release_notes_url.isEmpty()),
                  "addresses without a version");
    fuzz::require(feed.version.isEmpty() || qtsparkle::IsOlder(QString(), feed.version), "version");
    fuzz::require(feed.release_notes_url == feed.release_notes_url.trimmed(), "notes' address");

    buffer.seek(0);
    qtsparkle::AppCast again;
    again.version = QStringLiteral("99");
    fuzz::require(again.Load(&buffer) == loaded && again.version == feed.version &&
                      again.download_url == feed.download_url && again.release_notes_url == feed.release_notes_url,
                  "second look");
    return 0;
}
