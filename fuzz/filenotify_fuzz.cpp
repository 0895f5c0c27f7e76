// Any buffer of Windows' change notifications: the entries that lie wholly inside it, and no others.

#include "fuzz/fuzz.h"
#include "syncfolder/filenotify.h"

#include <memory>

namespace
{

quint64 number(const std::uint8_t* at)
{
    return at[0] + (at[1] << 8) + (at[2] << 16) + (static_cast<quint64>(at[3]) << 24);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A copy without any byte behind it.
    const std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[size]);
    std::copy(data, data + size, buffer.get());
    const QVector<FileNotification> found = decodeFileNotifications(buffer.get(), size);

    int count = 0;
    quint64 at = 0;
    for (;;) {
        if (at + 12 > size || at + 12 + number(data + at + 8) > size)
            break;
        const quint64 next = number(data + at);
        const quint64 length = number(data + at + 8);
        fuzz::require(count < found.size(), "entry");
        const FileNotification& entry = found.at(count++);
        fuzz::require(entry.action == number(data + at + 4), "action");
        fuzz::require(static_cast<quint64>(entry.name.size()) == length / 2, "length of a name");
        for (int i = 0; i < entry.name.size(); ++i) {
            const std::uint8_t* unit = data + at + 12 + 2 * i;
            fuzz::require(entry.name.at(i).unicode() == unit[0] + (unit[1] << 8), "name");
        }
        if (next < 12 + length)
            break;
        at += next;
    }
    fuzz::require(count == found.size(), "no entry beyond the end");
    return 0;
}
