#include "json/json.h"

#include <QStringList>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Json
{

namespace
{

constexpr char16_t quote = u'"';
constexpr char16_t backslash = u'\\';

/// Texts are looked through by this many characters at once.
constexpr int blockSize = 8;

QString toQString(const char16_t* text, std::ptrdiff_t size)
{
    return QString(reinterpret_cast<const QChar*>(text), static_cast<int>(size));
}

std::u16string_view viewOf(const QString& text)
{
    return {reinterpret_cast<const char16_t*>(text.constData()), static_cast<std::size_t>(text.size())};
}

/// The standard library's comparison goes character by character.
bool isSame(std::u16string_view a, std::u16string_view b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
}

#ifdef __SSE2__
int firstOf(unsigned found)
{
    return __builtin_ctz(found);
}

/// How many characters of a whole block stand before the first quote or backslash.
int plainInBlock(const char16_t* text)
{
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const __m128i quotes = _mm_cmpeq_epi16(block, _mm_set1_epi16(quote));
    const __m128i backslashes = _mm_cmpeq_epi16(block, _mm_set1_epi16(backslash));
    const auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(quotes, backslashes)));
    return firstOf(found | 1U << 16U) / 2; // two bits a character
}

/// Writes a whole block as bytes; those up to the returned number are right, the next needs a closer look.
int writeBlock(char* to, const char16_t* text)
{
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    // What does not fit into a byte becomes 0 or a negative one.
    const __m128i bytes = _mm_packus_epi16(block, block);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes);
    const __m128i controls = _mm_cmplt_epi8(bytes, _mm_set1_epi8(' '));
    const __m128i quotes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"'));
    const __m128i backslashes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'));
    const __m128i special = _mm_or_si128(controls, _mm_or_si128(quotes, backslashes));
    return firstOf(static_cast<unsigned>(_mm_movemask_epi8(special)) | 1U << blockSize);
}
#else
int plainInBlock(const char16_t* text)
{
    int count = 0;
    while (count < blockSize && text[count] != quote && text[count] != backslash)
        ++count;
    return count;
}

int writeBlock(char* to, const char16_t* text)
{
    int count = 0;
    for (; count < blockSize && text[count] >= u' ' && text[count] < 0x80; ++count) {
        if (text[count] == quote || text[count] == backslash)
            break;
        to[count] = static_cast<char>(text[count]);
    }
    return count;
}
#endif

bool isDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}

bool isNumberCharacter(char16_t c)
{
    return isDigit(c) || c == u'+' || c == u'-' || c == u'.' || c == u'e' || c == u'E';
}

using AsciiTable = std::array<char, 128>;

/// For each ASCII character the letter of its escape; 0 for those that are written as they stand.
constexpr AsciiTable escapeLetters()
{
    AsciiTable letters = {};
    letters['"'] = '"';
    letters['\\'] = '\\';
    letters['\b'] = 'b';
    letters['\f'] = 'f';
    letters['\n'] = 'n';
    letters['\r'] = 'r';
    letters['\t'] = 't';
    return letters;
}

/// For each escape letter the character that it stands for; 0 for letters that stand for none.
constexpr AsciiTable escapedCharacters()
{
    AsciiTable characters = {};
    for (std::size_t i = 0; i < characters.size(); ++i)
        characters[static_cast<unsigned char>(escapeLetters()[i])] = static_cast<char>(i);
    characters[0] = 0;
    characters['/'] = '/'; // is read, but not written
    return characters;
}

constexpr int hexLength = 4;

char16_t fromHex(const char16_t* digits)
{
    unsigned unit = 0;
    for (int i = 0; i < hexLength; ++i) {
        const unsigned letter = digits[i] | 0x20U;
        if (isDigit(digits[i]))
            unit = unit << 4U | (digits[i] - u'0');
        else if (letter >= 'a' && letter <= 'f')
            unit = unit << 4U | (letter - 'a' + 10);
        else // Qt takes some other spellings, too
            return static_cast<char16_t>(toQString(digits, hexLength).toInt(nullptr, 16));
    }
    return static_cast<char16_t>(unit);
}

/// Reads a text from its start towards its end. Each function leaves off behind what it has read, and
/// returns false when that was wrong: then nothing more is read.
class Reader final
{
public:
    explicit Reader(const QString& json)
        : m_at(viewOf(json).data())
        , m_end(m_at + json.size())
        , m_knownKeys(knownKeys())
    {
    }

    /// @p depth counts the objects and arrays around the value.
    bool readValue(QVariant& value, int depth)
    {
        skipBlanks();
        if (m_at == m_end)
            return false;
        switch (*m_at) {
        case quote: {
            QString text;
            if (!readString(text))
                return false;
            value = QVariant(text);
            return true;
        }
        case u'{':
            return depth < maximumDepth && readObject(value, depth + 1);
        case u'[':
            return depth < maximumDepth && readArray(value, depth + 1);
        default:
            break;
        }
        if (isDigit(*m_at) || *m_at == u'-')
            value = readNumber();
        else if (skipWord(u"true"))
            value = true;
        else if (skipWord(u"false"))
            value = false;
        else
            return skipWord(u"null");
        return true;
    }

private:
    static constexpr int longestKnown = 32; // characters

    /// Keys repeat, in a text and from one to the next.
    using KnownKeys = std::array<QString, 256>;
    static KnownKeys& knownKeys()
    {
        thread_local KnownKeys keys;
        return keys;
    }

    void skipBlanks()
    {
        while (m_at != m_end && (*m_at == u' ' || *m_at == u'\t' || *m_at == u'\n' || *m_at == u'\r'))
            ++m_at;
    }

    bool standsHere(std::u16string_view word) const
    {
        return static_cast<std::size_t>(m_end - m_at) >= word.size() &&
               word.compare(0, word.size(), m_at, word.size()) == 0;
    }

    bool skipWord(std::u16string_view word)
    {
        if (!standsHere(word))
            return false;
        m_at += word.size();
        return true;
    }

    /// Goes to the next member, or past the end of the object or array; @p ended tells.
    bool readSeparator(char16_t close, bool& ended)
    {
        for (;;) {
            skipBlanks();
            if (m_at == m_end)
                return false;
            ended = *m_at == close;
            if (!ended && *m_at != u',')
                return true;
            ++m_at;
            if (ended)
                return true;
        }
    }

    bool readObject(QVariant& value, int depth)
    {
        QVariantMap map;
        const bool success = readMembers(map, depth);
        value = success ? map : QVariantMap();
        return success;
    }

    bool readMembers(QVariantMap& map, int depth)
    {
        ++m_at;
        const QString* greatest = nullptr;
        for (;;) {
            bool ended = false;
            if (!readSeparator(u'}', ended))
                return false;
            if (ended)
                return true;
            const QString* key = readKey();
            if (key == nullptr)
                return false;
            // Most texts have their keys in order, and to add the greatest key needs no search.
            QVariantMap::iterator member;
            if (greatest == nullptr || viewOf(*greatest) < viewOf(*key)) {
                member = map.insert(map.constEnd(), *key, m_null);
                greatest = &member.key();
            } else {
                member = map.insert(*key, m_null);
            }
            if (!readValue(*member, depth))
                return false;
        }
    }

    bool readArray(QVariant& value, int depth)
    {
        QVariantList list;
        const bool success = readElements(list, depth);
        value = success ? list : QVariantList();
        return success;
    }

    bool readElements(QVariantList& list, int depth)
    {
        ++m_at;
        for (;;) {
            bool ended = false;
            if (!readSeparator(u']', ended))
                return false;
            if (ended)
                return true;
            list.append(m_null);
            if (!readValue(list.last(), depth))
                return false;
        }
    }

    /// Whether there is any token; which one does not matter where a key should be.
    bool isToken() const
    {
        switch (*m_at) {
        case quote:
        case u'{':
        case u'[':
        case u']':
        case u':':
        case u'-':
            return true;
        default:
            return isDigit(*m_at) || standsHere(u"true") || standsHere(u"false") || standsHere(u"null");
        }
    }

    /// A key and its colon. The key stays as it is until the next one is read.
    const QString* readKey()
    {
        if (!isToken())
            return nullptr;
        const char16_t* const start = m_at + 1;
        const char16_t* const end = plainEnd(start);
        QString* key = &m_key;
        if (end != m_end && *end == quote) {
            m_at = end + 1;
            const std::u16string_view text(start, static_cast<std::size_t>(end - start));
            if (!text.empty() && text.size() <= longestKnown)
                key = &knownKey(text);
            if (key == &m_key || !isSame(viewOf(*key), text))
                *key = toQString(start, end - start);
        } else if (!readString(*key)) {
            return nullptr;
        }
        skipBlanks();
        if (m_at == m_end || *m_at != u':')
            return nullptr;
        ++m_at;
        return key;
    }

    /// The place of one of the last keys, perhaps this one: equal keys share their characters.
    QString& knownKey(std::u16string_view text)
    {
        const std::size_t size = text.size();
        const std::size_t mixed = size * 31U + std::size_t(text.front()) * 7U + std::size_t(text[size / 2]) * 17U +
                                  std::size_t(text.back()) * 131U;
        return m_knownKeys[(mixed ^ mixed >> 8U) % m_knownKeys.size()];
    }

    /// The next quote or backslash, or the end.
    const char16_t* plainEnd(const char16_t* at) const
    {
        while (m_end - at >= blockSize) {
            const int plain = plainInBlock(at);
            at += plain;
            if (plain < blockSize)
                return at;
        }
        while (at != m_end && *at != quote && *at != backslash)
            ++at;
        return at;
    }

    bool readString(QString& text)
    {
        ++m_at; // the opening quote, or whatever stands in its place
        const char16_t* const end = plainEnd(m_at);
        if (end == m_end)
            return false;
        if (*end == backslash)
            return readEscaped(text);
        text = toQString(m_at, end - m_at);
        m_at = end + 1;
        return true;
    }

    bool readEscaped(QString& text)
    {
        const char16_t* at = m_at;
        char16_t* to = m_text.data();
        const char16_t* roomEnd = to + m_text.size();
        for (;;) {
            if (roomEnd - to < blockSize) {
                const std::ptrdiff_t size = to - m_text.data();
                m_text.resize(2 * m_text.size() + 256);
                to = m_text.data() + size;
                roomEnd = m_text.data() + m_text.size();
            }
            if (m_end - at >= blockSize) {
                std::memcpy(to, at, blockSize * sizeof(char16_t));
                const int plain = plainInBlock(at);
                at += plain;
                to += plain;
                if (plain == blockSize)
                    continue;
            } else if (at == m_end) {
                return false;
            }
            const char16_t c = *at++;
            if (c == quote)
                break;
            if (c != backslash) {
                *to++ = c;
                continue;
            }
            if (at == m_end)
                return false;
            const char16_t letter = *at++;
            if (letter < characters.size() && characters[letter] != 0) {
                *to++ = static_cast<char16_t>(characters[letter]);
            } else if (letter == u'u') {
                if (m_end - at < hexLength)
                    return false;
                *to++ = fromHex(at);
                at += hexLength;
            }
        }
        m_at = at;
        text = toQString(m_text.data(), to - m_text.data());
        return true;
    }

    QVariant readNumber()
    {
        constexpr int safeDigits = 18;
        const char16_t* const start = m_at;
        const bool negative = *m_at == u'-';
        if (negative)
            ++m_at;
        const char16_t* const digits = m_at;
        quint64 number = 0;
        for (; m_at != m_end && isDigit(*m_at); ++m_at)
            number = number * 10 + (*m_at - u'0');
        if (m_at - digits <= safeDigits && (m_at == m_end || !isNumberCharacter(*m_at)))
            return negative ? QVariant(-static_cast<qlonglong>(number)) : QVariant(number);

        bool point = false;
        for (; m_at != m_end && isNumberCharacter(*m_at); ++m_at)
            point = point || *m_at == u'.';
        const QString run = toQString(start, m_at - start);
        if (point)
            return run.toDouble();
        return negative ? QVariant(run.toLongLong()) : QVariant(run.toULongLong());
    }

    static constexpr AsciiTable characters = escapedCharacters();

    const char16_t* m_at;
    const char16_t* const m_end;
    const QVariant m_null;
    QString m_key;
    KnownKeys& m_knownKeys;
    std::vector<char16_t> m_text; ///< a string with escapes, while it is read
};

/// Writes values one after the other; false when one has no JSON form.
class Writer final
{
public:
    /// @p depth counts the lists and maps around the value.
    bool write(const QVariant& data, int depth)
    {
        switch (data.userType()) {
        case QMetaType::UnknownType:
            append("null");
            return true;
        case QMetaType::QVariantMap:
            return writePairs(content<QVariantMap>(data), depth);
        case QMetaType::QVariantHash:
            return writePairs(content<QVariantHash>(data), depth);
        case QMetaType::QVariantList:
            return writeList(content<QVariantList>(data), depth);
        case QMetaType::QStringList:
            return writeList(content<QStringList>(data), depth);
        case QMetaType::QString:
            writeString(content<QString>(data));
            return true;
        default:
            return writeScalar(data);
        }
    }

    QByteArray take()
    {
        m_text.resize(m_size);
        return std::move(m_text);
    }

private:
    /// Without a copy, for a type that the value has.
    template<typename T>
    static const T& content(const QVariant& data)
    {
        return *static_cast<const T*>(data.constData());
    }

    bool write(const QString& text, int depth)
    {
        Q_UNUSED(depth)
        writeString(text);
        return true;
    }

    template<typename List>
    bool writeList(const List& list, int depth)
    {
        if (depth == maximumDepth)
            return false;
        append("[ ");
        for (auto element = list.cbegin(); element != list.cend(); ++element) {
            if (element != list.cbegin())
                append(", ");
            if (!write(*element, depth + 1))
                return false;
        }
        append(" ]");
        return true;
    }

    template<typename Map>
    bool writePairs(const Map& map, int depth)
    {
        if (depth == maximumDepth)
            return false;
        append("{ ");
        for (auto pair = map.cbegin(); pair != map.cend(); ++pair) {
            if (pair != map.cbegin())
                append(", ");
            writeString(pair.key());
            append(" : ");
            if (!write(pair.value(), depth + 1))
                return false;
        }
        append(" }");
        return true;
    }

    bool writeScalar(const QVariant& data)
    {
        switch (data.userType()) {
        case QMetaType::QByteArray:
            writeString(data.toString());
            return true;
        case QMetaType::Double:
            writeDouble(data.toDouble());
            return true;
        case QMetaType::Bool:
            append(data.toBool() ? "true" : "false");
            return true;
        case QMetaType::ULongLong:
            writeInteger(data.toULongLong());
            return true;
        default:
            break;
        }
        if (data.canConvert<qlonglong>())
            writeInteger(data.toLongLong());
        else if (data.canConvert<long>())
            writeInteger(data.value<long>());
        else if (data.canConvert<QString>())
            writeString(data.toString());
        else
            return false;
        return true;
    }

    /// Where up to @p size bytes can be written now.
    char* room(qint64 size)
    {
        const qint64 needed = m_size + size;
        if (m_text.size() < needed) {
            constexpr qint64 mostBytes = std::numeric_limits<int>::max() / 2;
            if (needed > mostBytes)
                qBadAlloc();
            m_text.resize(static_cast<int>(std::max(needed, std::min(2LL * m_text.size(), mostBytes))));
        }
        return m_text.data() + m_size;
    }

    void append(std::string_view text)
    {
        const int size = static_cast<int>(text.size());
        std::memcpy(room(size), text.data(), text.size());
        m_size += size;
    }

    template<typename Integer>
    void writeInteger(Integer value)
    {
        constexpr int longest = 20;
        char* const start = room(longest);
        m_size += static_cast<int>(std::to_chars(start, start + longest, value).ptr - start);
    }

    void writeDouble(double value)
    {
        constexpr int significantDigits = 20;
        QByteArray text = QByteArray::number(value, 'g', significantDigits);
        if (!text.contains('.') && !text.contains('e'))
            text += ".0";
        append({text.constData(), static_cast<std::size_t>(text.size())});
    }

    void writeString(const QString& text)
    {
        const char16_t* at = viewOf(text).data();
        const char16_t* const end = at + text.size();
        constexpr qint64 longestCharacter = 3; // bytes for each UTF-16 unit
        char* const start = room(longestCharacter * text.size() + 2);
        char* to = start;
        *to++ = '"';
        while (at != end) {
            if (end - at >= blockSize) {
                const int written = writeBlock(to, at);
                at += written;
                to += written;
                if (written == blockSize)
                    continue;
            }
            const char16_t c = *at;
            if (c >= 0x80) {
                to = writeBeyondAscii(to, at, end);
                continue;
            }
            ++at;
            if (letters[c] != 0)
                *to++ = '\\';
            *to++ = letters[c] != 0 ? letters[c] : static_cast<char>(c);
        }
        *to++ = '"';
        m_size += static_cast<int>(to - start);
    }

    /// One character as UTF-8; a half of a surrogate pair becomes a question mark.
    static char* writeBeyondAscii(char* to, const char16_t*& at, const char16_t* end)
    {
        const auto tail = [](uint character, uint shift) {
            return static_cast<char>(0x80U | (character >> shift & 0x3fU));
        };
        const char16_t c = *at++;
        if (c < 0x800) {
            *to++ = static_cast<char>(0xc0U | c >> 6U);
            *to++ = tail(c, 0);
        } else if (!QChar::isSurrogate(c)) {
            *to++ = static_cast<char>(0xe0U | c >> 12U);
            *to++ = tail(c, 6);
            *to++ = tail(c, 0);
        } else if (QChar::isHighSurrogate(c) && at != end && QChar::isLowSurrogate(*at)) {
            const uint character = QChar::surrogateToUcs4(c, *at++);
            *to++ = static_cast<char>(0xf0U | character >> 18U);
            *to++ = tail(character, 12);
            *to++ = tail(character, 6);
            *to++ = tail(character, 0);
        } else {
            *to++ = '?';
        }
        return to;
    }

    static constexpr AsciiTable letters = escapeLetters();

    QByteArray m_text; ///< longer than what is written
    int m_size = 0;
};

} // namespace

QVariant parse(const QString& json, bool& success)
{
    success = true;
    QVariant value;
    if (!json.isNull())
        success = Reader(json).readValue(value, 0);
    return value;
}

QVariant parse(const QString& json)
{
    bool ignored = true;
    return parse(json, ignored);
}

QByteArray serialize(const QVariant& data, bool& success)
{
    Writer writer;
    success = writer.write(data, 0);
    return success ? writer.take() : QByteArray();
}

QByteArray serialize(const QVariant& data)
{
    bool ignored = true;
    return serialize(data, ignored);
}

} // namespace Json
