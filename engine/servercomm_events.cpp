#include "base/log.h"
#include "engine/servercomm.h"
#include "json/json.h"

#include <QCoreApplication>

#include <cstring>

namespace
{

constexpr int exitCodeOfEngineExit = 1;

/// A member that the message lacks keeps its last value, but for the state.
void takeNetworkState(const QVariantMap& message, EngineState& state)
{
    state.netState.clear();
    for (auto member = message.cbegin(); member != message.cend(); ++member) {
        const QString& key = member.key();
        if (key == QLatin1String("state"))
            state.netState = member->toString();
        else if (key == QLatin1String("uid"))
            state.uid = member->toULongLong();
        else if (key == QLatin1String("bps"))
            state.bps = member->toInt();
        else if (key == QLatin1String("uploads"))
            state.uploads = member->toInt();
        else if (key == QLatin1String("downloads"))
            state.downloads = member->toInt();
        else if (key == QLatin1String("timerem"))
            state.timeRemaining = member->toInt();
    }
}

QList<quint64> toIds(const QVariantList& list)
{
    QList<quint64> ids;
    ids.reserve(list.size());
    for (const QVariant& id : list)
        ids << id.toULongLong();
    return ids;
}

} // namespace

void ServerComm::serverOutput()
{
    takeOutput(m_process->readAllStandardError());
    const QByteArray standardOutput = m_process->readAllStandardOutput();
    noteOutput(standardOutput);
    ORVEL_LOG << "servercomm:" << masked(standardOutput);
}

void ServerComm::takeOutput(const QByteArray& raw)
{
    noteOutput(raw);
    ORVEL_LOG << "servercomm:"
              << "Raw stdout " << masked(raw);
    // Up to the first zero byte. Each read is cut by itself: the engine writes every message whole.
    const char* const end = raw.constData() + qstrlen(raw.constData());
    for (const char* line = raw.constData(); line < end;) {
        const void* const lineFeed = std::memchr(line, '\n', static_cast<std::size_t>(end - line));
        const char* const lineEnd = lineFeed != nullptr ? static_cast<const char*>(lineFeed) : end;
        bool ok = false;
        const QVariant message = Json::parse(QString::fromLatin1(line, static_cast<int>(lineEnd - line)), ok);
        if (ok && message.userType() == QMetaType::QVariantMap)
            handleMessage(*static_cast<const QVariantMap*>(message.constData()));
        line = lineEnd + 1;
    }
}

void ServerComm::handleMessage(const QVariantMap& message)
{
    const auto value = [&message](const char* key) {
        return message.value(QLatin1String(key));
    };
    const QString what = message.value(QStringLiteral("what")).toString();
    ORVEL_LOG << "servercomm:"
              << "Received from erlang " << masked(what.toUtf8());

    if (what == QLatin1String("state")) {
        m_state.pin = value("pin").toStringList();
        m_state.upnp = value("upnp").toBool();
        m_state.portWorks = value("portworks").toBool();
        m_state.portTime = value("porttime").toInt();
        emit stateChanged();
    } else if (what == QLatin1String("networkstate")) {
        takeNetworkState(message, m_state);
        emit netStateChanged();
    } else if (what == QLatin1String("rootschanged")) {
        emit rootsChanged();
    } else if (what == QLatin1String("sharefolderresult")) {
        emit shareFolderResult(value("msgid").toInt(), value("success").toBool(), value("msg").toInt());
    } else if (what == QLatin1String("spaceused")) {
        m_state.space = value("space").toULongLong();
        m_state.quota = value("quota").toULongLong();
        m_state.package = value("package").toString();
        emit spaceUsedChanged();
    } else if (what == QLatin1String("loginids")) {
        emit racunIds(value("ids").toStringList());
    } else if (what == QLatin1String("queryresult")) {
        emit pathQueryResult(value("cmd").toString(), toIds(value("idpath").toList()));
    } else if (what == QLatin1String("exit")) {
        QCoreApplication::exit(exitCodeOfEngineExit);
    }
}

const EngineState& ServerComm::state() const
{
    return m_state;
}
