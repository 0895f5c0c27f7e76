#pragma once

#include <QByteArray>
#include <QDataStream>
#include <QLocalServer>
#include <QLocalSocket>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>
#include <QVector>

/// An installation directory whose engine is played by a helper program, and the hand that leads it.
///
/// While one lives, the environment names its socket; children started from the installation connect to
/// it. All that they report is collected here while the event loop runs.
class FakeEngine final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FakeEngine)

public:
    struct Start
    {
        QStringList arguments;
        QString workingDirectory;
        qint64 processId = 0;
    };

    FakeEngine();
    ~FakeEngine() override;

    /// Lays out the installation with the fake engine in its place.
    void install();
    /// Takes the engine's program away, so that it cannot be started.
    void uninstall();
    QString installDir() const;
    /// From its next start on the engine reads nothing before startReading().
    void startSlowly();

    /// Every start so far, oldest first.
    const QVector<Start>& starts() const;
    /// That of the latest engine, each variable as NAME=value.
    const QStringList& environment() const;
    /// What the latest engine read from its standard input.
    const QByteArray& input() const;
    void forgetInput();
    /// Whether the latest engine is there and listening.
    bool isConnected() const;

    /// Orders to the latest engine. Each text is written with one write.
    void say(const QByteArray& line); ///< one line on the standard error
    void writeError(const QByteArray& bytes);
    void writeOutput(const QByteArray& bytes);
    void flood(const QByteArray& bytes, int times);
    void exitWith(int exitCode);
    void startReading();
    void stopReading(); ///< of the standard input, after one more read
    void closeInput();  ///< likewise
    void crash();

signals:
    void reported();

private slots:
    void engineConnected();
    void engineReported();

private:
    void order(const char* word, const QVariant& value);
    void take(QLocalSocket* engine, const QString& word, const QVariant& value);

    QTemporaryDir m_installDir;
    QLocalServer m_server;
    QPointer<QLocalSocket> m_latest;
    QVector<Start> m_starts;
    QStringList m_environment;
    QByteArray m_input;
};
