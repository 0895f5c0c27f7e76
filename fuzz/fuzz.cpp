#include "fuzz/fuzz.h"

#include <QApplication>
#include <QDir>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace fuzz
{

void require(bool promise, const char* what)
{
    if (promise)
        return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

QByteArray bytes(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), static_cast<int>(size)};
}

} // namespace fuzz

/// Called once, before the first input: an application with a home of its own, in memory where there is such
/// a place, since some targets write a file for each input.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    const QString memory = QStringLiteral("/dev/shm");
    static const QTemporaryDir home((QDir(memory).exists() ? memory : QDir::tempPath()) +
                                    QStringLiteral("/orvel-fuzz-XXXXXX"));
    const QByteArray path = QFile::encodeName(home.path());
    for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR", "TMPDIR"})
        qputenv(name, path);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QDir::setCurrent(home.path());
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    static int count = 1;
    Q_UNUSED(argc)
    static const QApplication application(count, *argv);
    return 0;
}
