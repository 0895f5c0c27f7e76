#include "shell/pipecmdreader.h"

#include "tests/support/metamethods.h"
#include "tests/support/test.h"

#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSignalSpy>

#include <array>
#include <memory>

#ifdef Q_OS_WIN
#include <windows.h>

#include <aclapi.h>
#endif

namespace
{

const QString pipeName = QStringLiteral("kestaextcommands");

QByteArray utf16(const QString& text)
{
    return QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
}

#ifdef Q_OS_WIN
constexpr bool closesAtOnce = true; // and then minds what is written
#else
constexpr bool closesAtOnce = false;
#endif

} // namespace

class PipeCmdReaderTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<PipeCmdReader> m_reader;
    std::unique_ptr<QLocalSocket> m_sender;
    QLocalSocket::LocalSocketState m_senderAtSignal = QLocalSocket::UnconnectedState;

protected:
    void setUp() override
    {
        m_reader = std::make_unique<PipeCmdReader>();
    }
    void tearDown() override
    {
        m_reader.reset();
        m_sender.reset();
    }

public slots:
    /// Whether the pipe is still open to the one who sent the command.
    void noteSender()
    {
        m_sender->waitForDisconnected(50);
        m_senderAtSignal = m_sender->state();
    }

private:
    static std::unique_ptr<QLocalSocket> send(const QByteArray& bytes)
    {
        auto socket = std::make_unique<QLocalSocket>();
        socket->connectToServer(pipeName);
        if (!socket->waitForConnected(deadline()))
            return nullptr;
        socket->write(bytes);
        socket->flush();
        return socket;
    }

private slots:
    void signalAndSlotStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(PipeCmdReader::staticMetaObject), QStringList{QStringLiteral("Command(QString,QString)")});
        QCOMPARE(slotsOf(PipeCmdReader::staticMetaObject), QStringList{QStringLiteral("newConnection()")});
    }

    void messageIsSplitIntoACommandAndAPath()
    {
        QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const QString path = QString::fromUtf8("C:\\Ana\\\xc5\xa0tevilke 1.txt");
        const auto socket = send(utf16(QStringLiteral("shareitem|") + path));
        QVERIFY(socket);
        EVENTUALLY_EQUAL(commands.count(), 1);
        QCOMPARE(commands.value(0), (QVariantList{QStringLiteral("shareitem"), path}));
        QVERIFY(log().contains(QStringLiteral("Localserver new connection")));
        QVERIFY(log().contains(QStringLiteral("Received command  shareitem|") + path));
        EVENTUALLY(socket->state() == QLocalSocket::UnconnectedState);
    }

    void messageWithOtherThanTwoPartsIsInvalid_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("word alone") << "revs";
        QTest::newRow("three parts") << "revs|a|b";
        QTest::newRow("path with a bar") << "revs|/a|b";
    }
    void messageWithOtherThanTwoPartsIsInvalid()
    {
        QFETCH(QString, text);
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto socket = send(utf16(text));
        EVENTUALLY(log().contains(QStringLiteral("Invalid command received  ") + text));
        QCOMPARE(commands.count(), 0);
    }

    void loneBarIsValidWithBothPartsEmpty()
    {
        QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto socket = send(utf16(QStringLiteral("|")));
        EVENTUALLY_EQUAL(commands.count(), 1);
        QCOMPARE(commands.value(0), (QVariantList{QString(), QString()}));
    }

    void oddNumberOfBytesStillEnds()
    {
        QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto socket = send(utf16(QStringLiteral("revs|/ab")).chopped(1));
        EVENTUALLY_EQUAL(commands.count(), 1);
        QVERIFY(log().contains(QStringLiteral("Received  20  bytes")));
    }

    void textEndsAtTheFirstZeroUnit()
    {
        QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto socket = send(utf16(QStringLiteral("revs|/a") + QChar(0) + QStringLiteral("|more")));
        EVENTUALLY_EQUAL(commands.count(), 1);
        QCOMPARE(commands.value(0).value(1).toString(), QStringLiteral("/a"));
    }

    void twoClientsAtOnceAreBothHeard()
    {
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto first = send(utf16(QStringLiteral("website|1")));
        const auto second = send(utf16(QStringLiteral("website|2")));
        EVENTUALLY_EQUAL(commands.count(), 2);
    }

    void clientThatSaysNothingIsDroppedSilentlyAfterASecond()
    {
        const auto silent = send(QByteArray());
        QElapsedTimer clock;
        clock.start();
        EVENTUALLY(silent->state() == QLocalSocket::UnconnectedState);
        const qint64 waited = clock.elapsed();
        QVERIFY2(waited >= 900, qPrintable(QString::number(waited)));
        QVERIFY2(waited < deadline() * 19 / 100, qPrintable(QString::number(waited)));
        QCOMPARE(log(), QStringList{QStringLiteral("Localserver new connection")});
    }

    void nextClientIsHeardAfterASilentOne()
    {
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto silent = send(QByteArray());
        const auto next = send(utf16(QStringLiteral("website|")));
        EVENTUALLY_EQUAL(commands.count(), 1);
    }

    void onlyTheFirstPieceOfAMessageIsRead()
    {
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        QElapsedTimer clock;
        clock.start();
        const auto socket = send(utf16(QStringLiteral("revs")));
        EVENTUALLY(log().contains(QStringLiteral("Invalid command received  revs")));
        QVERIFY(clock.elapsed() < deadline() * 9 / 100); // no second piece was waited for
        if (socket->state() == QLocalSocket::ConnectedState && !closesAtOnce) {
            socket->write(utf16(QStringLiteral("|/a")));
            socket->flush();
        }
        EVENTUALLY(socket->state() == QLocalSocket::UnconnectedState);
        QCOMPARE(log().filter(QRegularExpression(QStringLiteral("^Received  \\d"))).size(), 1);
        QCOMPARE(commands.count(), 0);
    }

    void nothingIsWrittenBackAndThePipeClosesAfterTheSignal()
    {
        m_sender = send(utf16(QStringLiteral("revs|/a")));
        connect(m_reader.get(), SIGNAL(Command(QString, QString)), this, SLOT(noteSender()));
        EVENTUALLY(m_sender->state() == QLocalSocket::UnconnectedState);
        QCOMPARE(m_senderAtSignal, QLocalSocket::ConnectedState);
        QVERIFY(m_sender->readAll().isEmpty());
    }

    void endlessMessageIsReadOnlyUpToABound()
    {
        const auto flooding = send(QByteArray(64 << 20, 'x'));
        EVENTUALLY(!log().filter(QStringLiteral("Received ")).isEmpty());
        const QString received = log().filter(QRegularExpression(QStringLiteral("^Received  \\d+  bytes$"))).value(0);
        QVERIFY(received.section(u' ', 2, 2).toInt() > 0);
        QVERIFY(received.section(u' ', 2, 2).toInt() <= 256 * 1024 + 5);
        EVENTUALLY(flooding->state() == QLocalSocket::UnconnectedState);
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto next = send(utf16(QStringLiteral("website|")));
        EVENTUALLY_EQUAL(commands.count(), 1);
    }

    void anyBytesAreOutlived()
    {
        QRandomGenerator random(20);
        for (int message = 0; message < 200; ++message) {
            QByteArray bytes(random.bounded(1, 2000), '\0');
            for (char& each : bytes)
                each = static_cast<char>(random.bounded(256));
            clearLog();
            const auto sender = send(bytes);
            QVERIFY(sender);
            EVENTUALLY(sender->state() == QLocalSocket::UnconnectedState);
        }
    }

    void pipeInUseLeavesTheReaderWithoutAServer()
    {
        PipeCmdReader second;
        QVERIFY(log().contains(QStringLiteral("Unable to listen on pipe")));
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto socket = send(utf16(QStringLiteral("website|")));
        EVENTUALLY_EQUAL(commands.count(), 1);
    }

#ifdef Q_OS_WIN
    void nameOfAnotherUserLeavesTheReaderWithoutAServer()
    {
        m_reader.reset();
        // One that is only read from denies us access, as that of another user does.
        const HANDLE theirs =
            CreateNamedPipeW(L"\\\\.\\pipe\\kestaextcommands", PIPE_ACCESS_INBOUND, 0, 2, 64, 64, 0, nullptr);
        QVERIFY(theirs != INVALID_HANDLE_VALUE);
        clearLog();
        m_reader = std::make_unique<PipeCmdReader>();
        CloseHandle(theirs);
        QCOMPARE(log(), QStringList{QStringLiteral("Unable to listen on pipe")});
    }

    void onlyTheUserMayConnect()
    {
        const HANDLE pipe = CreateFileW(L"\\\\.\\pipe\\kestaextcommands", READ_CONTROL | GENERIC_READ, 0, nullptr,
                                        OPEN_EXISTING, 0, nullptr);
        QVERIFY(pipe != INVALID_HANDLE_VALUE);
        ACL* acl = nullptr;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        QCOMPARE(GetSecurityInfo(pipe, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &acl, nullptr,
                                 &descriptor),
                 DWORD(ERROR_SUCCESS));
        CloseHandle(pipe);
        QVERIFY(acl != nullptr); // none at all would let everybody in
        QCOMPARE(int(acl->AceCount), 1);
        ACCESS_ALLOWED_ACE* entry = nullptr;
        QVERIFY(GetAce(acl, 0, reinterpret_cast<void**>(&entry)));
        QCOMPARE(int(entry->Header.AceType), ACCESS_ALLOWED_ACE_TYPE);

        std::array<char, 256> user = {};
        DWORD size = 0;
        QVERIFY(GetTokenInformation(GetCurrentProcessToken(), TokenUser, user.data(), user.size(), &size));
        QVERIFY(EqualSid(&entry->SidStart, reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid));
        LocalFree(descriptor);
    }
#else
    void onlyTheUserMayConnect()
    {
        const QFileInfo socket(QDir::tempPath() + u'/' + pipeName);
        QVERIFY(socket.exists());
        QVERIFY(!socket.permission(QFile::ReadGroup) && !socket.permission(QFile::WriteGroup));
        QVERIFY(!socket.permission(QFile::ReadOther) && !socket.permission(QFile::WriteOther));
    }

    void socketOfADeadClientDoesNotBlockTheName()
    {
        m_reader.reset();
        // What a killed client leaves behind: a name in the file system that nobody answers.
        const QString path = QDir::tempPath() + u'/' + pipeName;
        {
            QLocalServer dead;
            QVERIFY(dead.listen(path + QStringLiteral("-dead")));
            QVERIFY(QFile::rename(path + QStringLiteral("-dead"), path));
        }
        QVERIFY(QFileInfo::exists(path));
        clearLog();
        m_reader = std::make_unique<PipeCmdReader>();
        QVERIFY(!log().contains(QStringLiteral("Unable to listen on pipe")));
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const auto socket = send(utf16(QStringLiteral("website|")));
        EVENTUALLY_EQUAL(commands.count(), 1);
    }

    void removedSocketIsMadeAnew()
    {
        const QSignalSpy commands(m_reader.get(), SIGNAL(Command(QString, QString)));
        const QString path = QDir::tempPath() + u'/' + pipeName;
        for (int time = 1; time <= 3; ++time) {
            QVERIFY(QFile::remove(path));
            EVENTUALLY(QFileInfo::exists(path));
            const auto socket = send(utf16(QStringLiteral("website|")));
            QVERIFY(socket);
            EVENTUALLY_EQUAL(commands.count(), time);
        }
        onlyTheUserMayConnect();
        QCOMPARE(log().count(QStringLiteral("Pipe was removed")), 3);
    }
#endif
};

QTEST_GUILESS_MAIN(PipeCmdReaderTest)
#include "pipecmdreader_test.moc"
