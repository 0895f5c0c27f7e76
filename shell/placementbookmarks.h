#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

namespace placement
{

/// The address of a local folder, percent-encoded UTF-8.
QString folderUrl(const QString& path);
/// The folder that an address leads to, in whichever way it is encoded; empty when that is not local.
QString folderOfUrl(const QString& url);

/// A file in which file managers keep the bookmarks of their sidebar, under change.
///
/// Bookmarks are known by the folder that they lead to, an absolute path. What is not asked for stays byte for byte,
/// also what is not understood.
class Bookmarks final
{
public:
    /// One line each: an address, and after a blank the name that is shown.
    static Bookmarks fromGtk(const QByteArray& content);
    /// XBEL in UTF-8, a flat list of bookmarks.
    static Bookmarks fromPlaces(const QByteArray& content);

    /// One more bookmark, as it stands in such a file. @p icon may be empty.
    static QByteArray gtkEntry(const QString& folder);
    static QByteArray placesEntry(const QString& folder, const QString& icon);

    /// False for a malformed file, which is to be left alone: it then holds nothing and does not change.
    bool isValid() const;
    /// Whether one leads to the folder, or is shown under the folder's name.
    bool contains(const QString& folder) const;
    /// Removes all that lead to the folder.
    void remove(const QString& folder);
    /// Puts back those to the same folder that were removed before, where they stood and called as they
    /// were; otherwise the entry comes last.
    void add(const QString& folder, const QByteArray& entry);
    /// The file as it is to be written.
    QByteArray content() const;

private:
    struct Entry
    {
        QString folder; ///< empty when it leads elsewhere
        QString name;   ///< as shown
        int begin;      ///< in bytes
        int end;        ///< behind it
        bool removed;
    };

    struct Added
    {
        QString folder;
        QByteArray entry;
    };

    QByteArray m_content;
    QVector<Entry> m_entries;
    QVector<Added> m_added;
    int m_addAt = 0; ///< where the list ends, in bytes
    bool m_valid = true;
};

} // namespace placement
