// An engine that does nothing but talk: network states on the standard error, one line a write, as many as
// the environment says. It begins when its first order comes and stays until there are no more.

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

long variable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? 0 : std::strtol(value, nullptr, 10);
}

std::vector<std::string> makeLines(const char* state)
{
    constexpr int differentLines = 1000;
    std::vector<std::string> lines;
    for (int i = 0; i < differentLines; ++i) {
        lines.push_back("{\"what\":\"networkstate\",\"state\":\"" + std::string(state) + "\",\"uid\":1001,\"bps\":" +
                        std::to_string(2000000 + i * 1024) + ",\"uploads\":" + std::to_string(differentLines - i) +
                        ",\"downloads\":64,\"timerem\":" + std::to_string(3600 - i) + "}\n");
    }
    return lines;
}

} // namespace

int main()
{
    std::array<char, 4096> order = {};
    if (read(STDIN_FILENO, order.data(), order.size()) <= 0)
        return 0;
    const long count = variable("ORVEL_BENCH_LINES");
    const std::vector<std::string> lines = makeLines(count == 1 ? "ok" : "transferring");
    for (long i = 0; i < count; ++i) {
        const std::string& line = lines[static_cast<std::size_t>(i) % lines.size()];
        if (write(STDERR_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            return 1;
    }
    while (read(STDIN_FILENO, order.data(), order.size()) > 0) {
    }
    return 0;
}
