#pragma once

#include <QByteArray>
#include <QSet>

/// What is to be said about a directory, in lines; each line once, in the order of their first mention.
class ChangeLines final
{
    Q_DISABLE_COPY_MOVE(ChangeLines)

public:
    /// @p root: full path of the watched directory, in the system's bytes, with slashes.
    explicit ChangeLines(const QByteArray& root);

    void addWatching();
    void addMissed();
    void addGone();
    /// @p directory: a full path that begins with the root.
    void addChanged(const QByteArray& directory);

    bool isEmpty() const;
    /// The lines, which are forgotten then.
    QByteArray take();

private:
    void add(const QByteArray& line);

    int m_rootSize; ///< without a slash at its end
    QSet<QByteArray> m_known;
    QByteArray m_lines;
};
