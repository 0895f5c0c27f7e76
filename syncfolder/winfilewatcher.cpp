#include "syncfolder/winfilewatcher.h"

#include "base/log.h"

namespace
{

constexpr unsigned long stopTimeout = 5000; // ms

} // namespace

bool WinFileWatcher::stop()
{
    askToStop();
    return wait(stopTimeout);
}

void WinFileWatcher::Release::operator()(WinFileWatcher* watcher) const
{
    if (watcher->stop()) {
        delete watcher;
        return;
    }
    ORVEL_LOG << "Watcher does not end";
    connect(watcher, SIGNAL(finished()), watcher, SLOT(deleteLater()));
    if (watcher->isFinished()) // meanwhile
        watcher->deleteLater();
}
