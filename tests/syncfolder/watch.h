#pragma once

#include "syncfolder/winfilewatcher.h"
#include "tests/support/test.h"

#include <QCoreApplication>
#include <QDir>

#include <algorithm>
#include <memory>

/// A watcher with a receiver that keeps what is reported.
class Watch final
{
    Q_DISABLE_COPY_MOVE(Watch)

public:
    explicit Watch(const QStringList& roots)
        : m_roots(roots)
        , m_watcher(std::make_unique<WinFileWatcher>(roots, nullptr))
    {
    }
    ~Watch()
    {
        stop();
    }

    WinFileWatcher& watcher()
    {
        return *m_watcher;
    }
    void connect()
    {
        QObject::connect(m_watcher.get(), &WinFileWatcher::pathsChanged, &m_receiver, [this](QStringList* paths) {
            m_reported << *paths;
            delete paths;
        });
    }
    /// Ends the watcher, and takes what it has sent.
    void stop()
    {
        m_watcher.reset();
        QCoreApplication::sendPostedEvents(&m_receiver);
    }

    bool hasReported(const QString& directory) const
    {
        return m_reported.contains(directory);
    }
    const QStringList& reported() const
    {
        return m_reported;
    }
    void forget()
    {
        m_reported.clear();
    }

    /// Waits until a change in @p directory is reported, and with it all that were made before.
    bool catchUp(const QString& directory)
    {
        // The first may be reported by a first look around, ahead of what was notified meanwhile.
        return reports(directory) && reports(directory);
    }

private:
    /// Waits until a new change in @p directory is reported.
    bool reports(const QString& directory)
    {
        static int number = 0;
        constexpr int patience = 25;
        QStringList markers;
        int attempts = 0;
        // Again, and now and then with a new one, should nobody have watched yet.
        return QTest::qWaitFor(
            [&] {
                open(directory);
                if (attempts++ % patience == 0)
                    markers << directory + QStringLiteral("/marker") + QString::number(++number);
                for (const QString& marker : markers)
                    writeFile(marker + QStringLiteral("/file"), {});
                return std::any_of(markers.cbegin(), markers.cend(),
                                   [this](const QString& marker) { return hasReported(marker); });
            },
            deadline());
    }

    /// Wine sees into an earlier directory only when that is opened while its parent is watched.
    void open(const QString& directory) const
    {
        for (const QString& root : m_roots) {
            for (int end = root.size(); end > 0 && directory.startsWith(root); end = directory.indexOf(u'/', end + 1))
                (void)QDir(directory.left(end)).entryList();
            (void)QDir(directory).entryList();
        }
    }

    QStringList m_roots;
    QStringList m_reported;
    QObject m_receiver;
    std::unique_ptr<WinFileWatcher> m_watcher;
};
