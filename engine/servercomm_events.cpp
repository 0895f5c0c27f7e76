#include "base/log.h"
#include "engine/servercomm.h"
#include "json/json.h"

#include <QCoreApplication>

namespace
{

constexpr int exitCodeOfEngineExit = 1;

/// Stores the member when the message has it, and leaves the target alone when not.
void takeIfPresent(const QVariantMap& message, const QString& key, int& target)
{
    const auto found = message.constFind(key);
    if (found != message.constEnd())
        target = found->toInt();
}

void takeIfPresent(const QVariantMap& message, const QString& key, quint64& target)
{
    const auto found = message.constFind(key);
    if (found != message.constEnd())
        target = found->toULongLong();
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
    noteLastOutput(standardOutput);
    ORVEL_LOG << "servercomm:" << standardOutput;
}

void ServerComm::takeOutput(const QByteArray& raw)
{
    noteLastOutput(raw);
    // Up to the first zero byte. Each read is cut by itself: the engine writes every message whole.
    const QString text = QString::fromLatin1(raw.constData());
    ORVEL_LOG << "servercomm:"
              << "Raw stdout " << raw;
    const QVector<QStringRef> lines = text.splitRef(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QStringRef& line : lines) {
        bool ok = false;
        const QVariant message = Json::parse(QString::fromRawData(line.unicode(), line.size()), ok);
        if (ok && message.userType() == QMetaType::QVariantMap)
            handleMessage(message.toMap());
    }
}

void ServerComm::handleMessage(const QVariantMap& message)
{
    const auto value = [&message](const char* key) {
        return message.value(QLatin1String(key));
    };
    const QString what = message.value(QStringLiteral("what")).toString();
    ORVEL_LOG << "servercomm:"
              << "Received from erlang " << what;

    if (what == QLatin1String("state")) {
        m_state.pin = value("pin").toStringList();
        m_state.upnp = value("upnp").toBool();
        m_state.portWorks = value("portworks").toBool();
        m_state.portTime = value("porttime").toInt();
        emit stateChanged();
    } else if (what == QLatin1String("networkstate")) {
        m_state.netState = message.value(QStringLiteral("state")).toString();
        takeIfPresent(message, QStringLiteral("uid"), m_state.uid);
        takeIfPresent(message, QStringLiteral("bps"), m_state.bps);
        takeIfPresent(message, QStringLiteral("uploads"), m_state.uploads);
        takeIfPresent(message, QStringLiteral("downloads"), m_state.downloads);
        takeIfPresent(message, QStringLiteral("timerem"), m_state.timeRemaining);
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
