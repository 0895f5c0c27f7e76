#include "base/log.h"
#include "engine/privatefiles.h"
#include "engine/servercomm.h"
#include "json/json.h"

#include <QFile>

void ServerComm::readConfig()
{
    ORVEL_LOG << "servercomm:"
              << "Read config " << m_configPath;
    QFile file(m_configPath);
    const QByteArray content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    file.close();

    const Machine machine = m_machine();
    if (content.isEmpty()) {
        m_config.setFirstRunDefaults(machine);
        saveConfig(true);
        return;
    }

    bool ok = false;
    const QVariant parsed = Json::parse(QString::fromUtf8(content.constData()), ok);
    if (!ok || parsed.userType() != QMetaType::QVariantMap)
        return;
    m_config.read(parsed.toMap(), machine);
    ORVEL_LOG << "servercomm:"
              << "Shared dirs " << m_config.dirs.join(QLatin1Char(' '));
    saveConfig(false);
}

void ServerComm::saveConfig(bool post)
{
    ORVEL_LOG << "servercomm:"
              << "Save config " << base::text(post);
    m_configBytes = m_config.toJson(m_machine());
    ORVEL_LOG << "servercomm:"
              << "Saving cfg to " << m_configPath;
    privatefiles::write(m_configPath, m_configBytes);
    if (post)
        postConfig();
}

void ServerComm::saveConfig()
{
    saveConfig(true);
}

void ServerComm::setHome(const QString& homepath, const QString& homefolder)
{
    m_config.homepath = homepath;
    m_config.homefolder = homefolder;
}

void ServerComm::setMachine(std::function<Machine()> machine)
{
    m_machine = std::move(machine);
}

const EngineConfig& ServerComm::config() const
{
    return m_config;
}

const QString& ServerComm::configPath() const
{
    return m_configPath;
}

/// The computer may have changed networks since the address was chosen.
void ServerComm::checkLocalAddress()
{
    const Machine machine = m_machine();
    if (machine.addresses.contains(m_config.srvip))
        return;
    ORVEL_LOG << "servercomm:"
              << "postConfig " << m_config.srvip << " not found, using " << machine.firstAddress();
    m_config.srvip = machine.firstAddress();
    saveConfig(false);
}
