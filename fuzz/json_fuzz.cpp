// The codec against the slow one: same success, same value, same bytes; and what was written reads as it was.

#include "fuzz/fuzz.h"
#include "fuzz/slowjson.h"
#include "json/json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    // The first byte chooses how the rest is a text, so that broken UTF-16 is tried, too.
    const QByteArray raw = fuzz::bytes(data + 1, size - 1);
    QString text;
    if (data[0] % 4 == 1)
        text = QString(reinterpret_cast<const QChar*>(raw.constData()), raw.size() / 2);
    else if (data[0] % 4 == 2)
        text = QString::fromLatin1(raw.constData(), raw.size());
    else
        text = QString::fromUtf8(raw.constData(), raw.size());

    bool ok = false;
    bool expectedOk = false;
    const QVariant value = Json::parse(text, ok);
    const QVariant expected = slowjson::parse(text, expectedOk);
    fuzz::require(ok == expectedOk, "success of parse");
    fuzz::require(slowjson::same(value, expected), "value of parse");
    if (!ok)
        return 0;

    const QByteArray written = Json::serialize(value, ok);
    fuzz::require(ok != written.isNull(), "success of serialize");
    fuzz::require(written == slowjson::serialize(value), "bytes of serialize");
    if (slowjson::comesBack(value)) {
        const QVariant again = Json::parse(QString::fromUtf8(written), ok);
        fuzz::require(ok && slowjson::same(again, value), "value after writing and reading");
    }
    return 0;
}
