#include "watch/changelines.h"

#include <utility>

namespace
{

int sizeWithoutSlash(const QByteArray& path)
{
    int size = path.size();
    while (size > 0 && path.at(size - 1) == '/')
        --size;
    return size;
}

QByteArray escaped(const QByteArray& path)
{
    constexpr uchar firstPlain = 0x21;
    constexpr uchar deleteCharacter = 0x7f;
    QByteArray result;
    result.reserve(path.size());
    for (const char character : path) {
        const auto byte = static_cast<uchar>(character);
        if (byte < firstPlain || byte == '%' || byte == deleteCharacter)
            result.append('%').append(QByteArray(1, character).toHex().toUpper());
        else
            result.append(character);
    }
    return result;
}

} // namespace

ChangeLines::ChangeLines(const QByteArray& root)
    : m_rootSize(sizeWithoutSlash(root))
{
}

void ChangeLines::addWatching()
{
    add("=");
}

void ChangeLines::addMissed()
{
    add("!");
}

void ChangeLines::addGone()
{
    add("-");
}

void ChangeLines::addChanged(const QByteArray& directory)
{
    int start = m_rootSize;
    while (start < directory.size() && directory.at(start) == '/')
        ++start;
    add('+' + escaped(directory.mid(start)));
}

bool ChangeLines::isEmpty() const
{
    return m_lines.isEmpty();
}

QByteArray ChangeLines::take()
{
    m_known.clear();
    return std::exchange(m_lines, QByteArray());
}

void ChangeLines::add(const QByteArray& line)
{
    const int before = m_known.size();
    m_known.insert(line);
    if (m_known.size() != before)
        m_lines.append(line).append('\n');
}
