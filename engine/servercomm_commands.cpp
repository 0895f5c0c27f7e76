#include "base/log.h"
#include "engine/servercomm.h"
#include "json/json.h"

namespace
{

constexpr qint64 mostUnread = 32LL * 1024 * 1024; // bytes

} // namespace

// Spellings such as "pathschaned" and the log text "Doing sync disable" for both values are what the
// engine and the readers of the log expect.

void ServerComm::logout()
{
    ORVEL_LOG << "servercomm:"
              << "Doing logout";
    send({{QStringLiteral("cmd"), QStringLiteral("logout")}});
}

void ServerComm::setSyncEnabled(bool val)
{
    ORVEL_LOG << "servercomm:"
              << "Doing sync disable";
    send({{QStringLiteral("cmd"), QStringLiteral("syncenabled")}, {QStringLiteral("val"), val}});
}

void ServerComm::observedPathsChanged(QStringList& paths)
{
    ORVEL_LOG << "Servercomm received paths changed " << paths.join(QLatin1Char(' '));
    send({{QStringLiteral("cmd"), QStringLiteral("pathschaned")}, {QStringLiteral("paths"), paths}});
}

void ServerComm::pathQuery(const QString& path, const QString& what)
{
    ORVEL_LOG << "servercomm:"
              << "pathquery " << what << path;
    send({{QStringLiteral("cmd"), QStringLiteral("pathquery")},
          {QStringLiteral("what"), what},
          {QStringLiteral("path"), path}});
}

void ServerComm::shareFolder(const QString& username, const QString& path, int msgid)
{
    ORVEL_LOG << "servercomm:"
              << "Sharing folder " << path << " with user " << username;
    send({{QStringLiteral("cmd"), QStringLiteral("sharefolder")},
          {QStringLiteral("username"), username},
          {QStringLiteral("path"), path},
          {QStringLiteral("msgid"), msgid}});
}

void ServerComm::login(const QString& username, const QString& password, const QString& cid)
{
    ORVEL_LOG << "servercomm:"
              << "login with username " << username;
    m_loginPassword = password;
    send({{QStringLiteral("cmd"), QStringLiteral("login")},
          {QStringLiteral("username"), username},
          {QStringLiteral("password"), password},
          {QStringLiteral("cid"), cid}});
}

void ServerComm::login(const QString& username, const QString& password)
{
    login(username, password, QLatin1String(""));
}

void ServerComm::requestPortCheck()
{
    m_checkPortPending = true;
}

void ServerComm::requestUpnpReset()
{
    m_resetUpnpPending = true;
}

void ServerComm::send(const QVariantMap& command)
{
    sendText(Json::serialize(command));
}

/// Returns what the write of the JSON text itself reported: bytes, or -1.
qint64 ServerComm::sendText(const QByteArray& json)
{
    // An engine that hangs would take all our memory. The next one reads the whole folder anyway.
    if (m_process->bytesToWrite() > mostUnread && m_running) {
        endDeafEngine();
        return -1;
    }
    m_process->write("\njson");
    const qint64 written = m_process->write(json);
    m_process->write("\n");
    return written;
}
