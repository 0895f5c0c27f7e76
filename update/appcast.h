#pragma once

#include <QMetaType>
#include <QSharedPointer>
#include <QString>

class QIODevice;
class QXmlStreamReader;

namespace qtsparkle
{

/// The newest version that an update feed offers.
struct AppCast
{
    QString version; ///< empty when the feed offers none
    QString download_url;
    QString release_notes_url;
    QString error_reason; ///< what the XML reader said; empty after a success

    /// Reads a feed from @p device, which is open for reading, to its end. False when it is not well-formed.
    bool Load(QIODevice* device);

private:
    void LoadItem(QXmlStreamReader& reader);
};

using AppCastPtr = QSharedPointer<AppCast>;

} // namespace qtsparkle

using qtsparkle::AppCastPtr;
Q_DECLARE_METATYPE(AppCastPtr)
