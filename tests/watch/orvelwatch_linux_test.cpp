#include "tests/watch/watchprocess.h"

#include <QTemporaryDir>

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace
{

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

/// The program with a socket as standard output that keeps the writes apart.
class PacketProcess final : public QProcess
{
    Q_DISABLE_COPY_MOVE(PacketProcess)

public:
    explicit PacketProcess(const QString& directory)
    {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_ends.data()) != 0)
            qFatal("no socket");
        setProcessChannelMode(QProcess::ForwardedChannels);
        start(QStringLiteral(ORVEL_WATCH), {directory});
        ::close(m_ends[1]);
    }
    ~PacketProcess() override
    {
        kill();
        waitForFinished();
        ::close(m_ends[0]);
    }

    /// What one write wrote; empty when none comes.
    QByteArray packet() const
    {
        constexpr int most = 1 << 20;
        pollfd wait = {m_ends[0], POLLIN, 0};
        if (poll(&wait, 1, deadline()) != 1)
            return QByteArray();
        QByteArray bytes(most, Qt::Uninitialized);
        bytes.resize(static_cast<int>(qMax<ssize_t>(0, recv(m_ends[0], bytes.data(), most, 0))));
        return bytes;
    }

protected:
    void setupChildProcess() override
    {
        dup2(m_ends[1], STDOUT_FILENO);
    }

private:
    std::array<int, 2> m_ends = {};
};

/// A program that file permissions bind, also when root runs it.
class BoundProcess final : public QProcess
{
protected:
    void setupChildProcess() override
    {
        for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH})
            prctl(PR_CAPBSET_DROP, right, 0, 0, 0);
    }
};

} // namespace

class OrvelWatchLinuxTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_directory;
    QString m_root;

    QString inRoot(const char* path) const
    {
        return m_root + QLatin1Char('/') + text(path);
    }

protected:
    void setUp() override
    {
        m_directory = std::make_unique<QTemporaryDir>();
        m_root = m_directory->filePath(text("root"));
        QVERIFY(QDir().mkpath(inRoot("a")));
    }

private slots:
    void bytesThatAreNoUtf8AreKept()
    {
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        const QByteArray name = m_root.toUtf8() + "/\xff\x01\x7f\n\xc5 x";
        QCOMPARE(mkdir(name.constData(), 0700), 0);
        QVERIFY(watch.says("+"));
        const int file = open((name + "/file").constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        QVERIFY(file >= 0);
        close(file);
        QVERIFY(watch.says("+\xff%01%7F%0A\xc5%20x"));
        QCOMPARE(unlink((name + "/file").constData()), 0); // Qt cannot
        QCOMPARE(rmdir(name.constData()), 0);
    }

    void aBatchIsOneWriteInWhichNoLineComesTwice()
    {
        constexpr int directories = 50;
        constexpr int writes = 40;
        const PacketProcess watch(m_root);
        QByteArray first; // what was made just before may be named, too
        do {
            first = watch.packet();
            QVERIFY(!first.isEmpty());
        } while (!first.endsWith("=\n"));
        QSet<QByteArray> missing;
        for (int i = 0; i < directories; ++i) {
            QVERIFY(QDir().mkpath(inRoot("a") + text("/%1").arg(i)));
            missing << "+a/" + QByteArray::number(i);
        }
        for (int write = 0; write < writes; ++write) {
            for (int i = 0; i < directories; ++i)
                writeFile(inRoot("a") + text("/%1/file").arg(i), QByteArray::number(write));
        }
        int most = 0;
        while (!missing.isEmpty()) {
            const QByteArray packet = watch.packet();
            QVERIFY(packet.endsWith('\n'));
            const QList<QByteArray> lines = packet.chopped(1).split('\n');
            QCOMPARE(lines.size(), QSet<QByteArray>(lines.cbegin(), lines.cend()).size());
            most = qMax(most, lines.size());
            for (const QByteArray& line : lines) {
                QVERIFY2(line.startsWith("+a"), line.constData());
                missing.remove(line);
            }
        }
        QVERIFY(most > 1);
    }

    void lostNotificationsAreSaid()
    {
        const int queue = readFile(text("/proc/sys/fs/inotify/max_queued_events")).trimmed().toInt();
        QVERIFY(queue > 0);
        WatchProcess watch({m_root});
        QVERIFY(watch.says("="));
        QVERIFY(!watch.lines().contains("!"));
        const auto id = static_cast<pid_t>(watch.process().processId());
        QCOMPARE(kill(id, SIGSTOP), 0);
        // Twice as many as it holds, as it may stop late. Those that are the same as the one before are joined.
        for (int i = 0; i < queue; ++i) {
            for (const char* name : {"a/one", "a/two"})
                QVERIFY(close(open(inRoot(name).toUtf8().constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600)) == 0);
        }
        QCOMPARE(kill(id, SIGCONT), 0);
        QVERIFY(watch.says("!"));
        watch.forget();
        writeFile(inRoot("a/three"), "content");
        QVERIFY(watch.says("+a"));
    }

    void aDirectoryThatIsClosedToUsCannotBeWatched()
    {
        QVERIFY(QFile::setPermissions(m_root, QFile::Permissions()));
        BoundProcess watch;
        watch.start(QStringLiteral(ORVEL_WATCH), {m_root});
        QVERIFY(watch.waitForFinished(deadline()));
        QVERIFY(QFile::setPermissions(m_root, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QCOMPARE(watch.readAllStandardOutput(), QByteArray("-\n"));
        QCOMPARE(watch.exitCode(), 1);
    }

    void theEndOfItsInputEndsItWhileNobodyReadsWhatItWrites()
    {
        const QByteArray path = m_directory->filePath(text("pipe")).toUtf8();
        QCOMPARE(mkfifo(path.constData(), 0600), 0);
        const int unread = open(path.constData(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
        QVERIFY(unread >= 0);
        while (write(unread, "x", 1) > 0) { // until it is full
        }
        QProcess watch;
        watch.setStandardOutputFile(QString::fromUtf8(path));
        watch.start(QStringLiteral(ORVEL_WATCH), {m_root});
        const QByteArray writing = QByteArray::number(SYS_write) + " 0x1 ";
        EVENTUALLY(readFile(text("/proc/%1/syscall").arg(watch.processId())).startsWith(writing));
        watch.closeWriteChannel();
        QVERIFY(watch.waitForFinished(deadline()));
        QCOMPARE(watch.exitStatus(), QProcess::NormalExit);
        QCOMPARE(watch.exitCode(), 0);
        close(unread);
    }
};

QTEST_GUILESS_MAIN(OrvelWatchLinuxTest)
#include "orvelwatch_linux_test.moc"
