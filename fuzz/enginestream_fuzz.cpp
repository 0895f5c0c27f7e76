// The engine's stream, cut anywhere: the state is what the whole lines of each read say, however odd the rest.

#include "engine/servercomm.h"
#include "fuzz/fuzz.h"
#include "fuzz/slowjson.h"

namespace
{

/// The state by the letter of the protocol.
void take(EngineState& state, const QVariantMap& message)
{
    const auto has = [&](const char* key) {
        return message.contains(QLatin1String(key));
    };
    const auto value = [&](const char* key) {
        return message.value(QLatin1String(key));
    };
    const QString what = value("what").toString();
    if (what == QLatin1String("state")) {
        state.pin = value("pin").toStringList();
        state.upnp = value("upnp").toBool();
        state.portWorks = value("portworks").toBool();
        state.portTime = value("porttime").toInt();
    } else if (what == QLatin1String("networkstate")) {
        state.netState = value("state").toString();
        state.uid = has("uid") ? value("uid").toULongLong() : state.uid;
        state.bps = has("bps") ? value("bps").toInt() : state.bps;
        state.uploads = has("uploads") ? value("uploads").toInt() : state.uploads;
        state.downloads = has("downloads") ? value("downloads").toInt() : state.downloads;
        state.timeRemaining = has("timerem") ? value("timerem").toInt() : state.timeRemaining;
    } else if (what == QLatin1String("spaceused")) {
        state.space = value("space").toULongLong();
        state.quota = value("quota").toULongLong();
        state.package = value("package").toString();
    }
}

bool same(const EngineState& a, const EngineState& b)
{
    return a.pin == b.pin && a.upnp == b.upnp && a.portWorks == b.portWorks && a.portTime == b.portTime &&
           a.netState == b.netState && a.uid == b.uid && a.bps == b.bps && a.uploads == b.uploads &&
           a.downloads == b.downloads && a.timeRemaining == b.timeRemaining && a.space == b.space &&
           a.quota == b.quota && a.package == b.package;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static ServerComm server(QStringLiteral("Orvel Storage"), QStringLiteral("Velmora d.d."), false);
    EngineState expected = server.state();

    // A byte 0xFE cuts: what stands between two of them is one read.
    const QByteArrayList reads = fuzz::bytes(data, size).split('\xFE');
    for (const QByteArray& read : reads) {
        server.takeOutput(read);
        const int zero = read.indexOf('\0');
        const QByteArrayList lines = read.left(zero < 0 ? read.size() : zero).split('\n');
        for (const QByteArray& line : lines) {
            if (line.isEmpty())
                continue;
            bool ok = false;
            const QVariant message = slowjson::parse(QString::fromLatin1(line), ok);
            if (ok && message.userType() == QMetaType::QVariantMap)
                take(expected, message.toMap());
        }
        fuzz::require(same(server.state(), expected), "state after a read");
    }
    return 0;
}
