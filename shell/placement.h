#pragma once

#include <QString>

#include <memory>

class QDir;

/// The places that the client takes in the desktop's shell. Failures are silent and nothing is tried
/// again: no place is worth a message to the user. GUI thread; nothing here waits for another program.
namespace placement
{

/// The file from which other programs take the client's icon: @p program itself on Windows, elsewhere a
/// picture that is laid into @p dataDir. Empty when there is none.
QString iconFile(const QString& program, const QString& dataDir);

/// Starts the program at log-on from now on, or no longer. @p name is what the entry is called,
/// @p program the full path of the executable, @p icon a result of iconFile().
void setStartup(bool on, const QString& name, const QString& program, const QString& icon);

/// Gives a sync root the client's icon in the file manager. @p icon is a result of iconFile().
void setFolderIcon(const QDir& root, const QString& icon);

/// The links to the sync roots in the file manager's sidebar, open for one change.
///
/// A link is known by a text that can be stored and finds it again later. Where the links stand together
/// in a file, that file is read at the beginning and replaced at the end if anything is different then;
/// everything else in it stays as it is.
class Links final
{
    Q_DISABLE_COPY_MOVE(Links)

public:
    Links();
    ~Links();

    /// The link that a root has, or would have. Roots in different places may share one.
    QString linkTo(const QDir& root) const;
    /// Whether there is such a link already, no matter who made it.
    bool exists(const QString& link) const;
    /// Removes the link; nothing happens when there is none.
    void remove(const QString& link);
    /// Makes the link of @p root, which must not exist. False when there is nowhere to make it.
    bool create(const QString& link, const QDir& root, const QString& icon);

private:
    struct Shell;
    std::unique_ptr<Shell> m_shell;
};

} // namespace placement
