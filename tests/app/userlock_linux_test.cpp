// The client's lock on Linux: a segment whose key is cut from the number of a file, 16 bits of it, so that other
// programs can have the same.

#include "tests/support/endclient.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"

#include <QDateTime>
#include <QProcess>
#include <QSharedMemory>
#include <QVector>

#include <sched.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <memory>

/// Shared memory of another program under given keys.
class OtherMemory final
{
    Q_DISABLE_COPY_MOVE(OtherMemory)

public:
    OtherMemory(const QVector<key_t>& keys, size_t size)
    {
        for (const key_t key : keys) {
            const int id = shmget(key, size, IPC_CREAT | IPC_EXCL | 0600);
            if (id >= 0) // not for a key that is taken
                m_ids += id;
        }
    }

    ~OtherMemory()
    {
        for (const void* memory : qAsConst(m_memory))
            shmdt(memory);
        for (const int id : qAsConst(m_ids))
            shmctl(id, IPC_RMID, nullptr);
    }

    void attach()
    {
        for (const int id : qAsConst(m_ids))
            m_memory += shmat(id, nullptr, 0);
    }

    /// Whether nobody has removed any of it.
    bool isComplete() const
    {
        shmid_ds state = {};
        return !m_ids.isEmpty() &&
               std::all_of(m_ids.cbegin(), m_ids.cend(), [&](int id) { return shmctl(id, IPC_STAT, &state) == 0; });
    }

private:
    QVector<int> m_ids;
    QVector<const void*> m_memory;
};

class UserLockTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<FakeEngine> m_engine;
    int m_startsBefore = 0;

protected:
    void setUp() override
    {
        m_engine = std::make_unique<FakeEngine>();
    }

    void tearDown() override
    {
        m_engine.reset();
    }

private:
    std::unique_ptr<QProcess> start()
    {
        m_startsBefore = m_engine->starts().size();
        auto client = std::make_unique<QProcess>();
        client->setWorkingDirectory(m_engine->installDir());
        client->start(QStringLiteral(ORVEL_CLIENT), QStringList());
        return client;
    }

    static bool ended(QProcess& client)
    {
        return QTest::qWaitFor([&] { return client.state() == QProcess::NotRunning; }, deadline());
    }

    static bool isRefused(QProcess& client)
    {
        return ended(client) && client.exitCode() == 1 &&
               client.readAllStandardError().endsWith("\nshared memory exists\n");
    }

    /// Whether the client that was started last gets as far as to configure its engine.
    bool isReady(QProcess& client)
    {
        const auto ready = [&] {
            return m_engine->starts().size() > m_startsBefore && m_engine->input().endsWith("}\n");
        };
        return QTest::qWaitFor([&] { return ready() || client.state() == QProcess::NotRunning; }, deadline()) &&
               ready();
    }

    static bool end(QProcess& client)
    {
        askToEnd(client);
        return ended(client) && client.exitCode() == 0;
    }

    static QString keyFile()
    {
        return QSharedMemory(QStringLiteral("kestakljuc")).nativeKey();
    }

    static key_t keyOf(const QString& path)
    {
        return ftok(QFile::encodeName(path).constData(), 'Q');
    }

    /// The keys that the next file of the temporary directory is likely to give.
    static QVector<key_t> nextKeys()
    {
        constexpr int files = 64;
        // A file system gives the numbers of removed files again, or one number after the other.
        const QDir directory(QDir::tempPath());
        QVector<key_t> keys;
        for (int i = 0; i < files; ++i) {
            writeFile(directory.filePath(QString::number(i)), "");
            keys += keyOf(directory.filePath(QString::number(i)));
        }
        for (int i = 0; i < files; ++i)
            QFile::remove(directory.filePath(QString::number(i)));
        for (int i = 1; i <= files; ++i)
            keys += keys.at(files - 1) + i;
        return keys;
    }

private slots:
    static void initTestCase()
    {
        (void)unshare(CLONE_NEWIPC); // the memory of this test is nobody else's
    }

    void memoryOfALivingProgramUnderTheKeyIsNoReasonToLeave()
    {
        // Another program may take the number of the file first; then it is tried again.
        bool met = false;
        for (int i = 0; i < 10 && !met; ++i) {
            OtherMemory memory(nextKeys(), 4096);
            memory.attach();
            const auto client = start();
            QVERIFY2(isReady(*client), client->readAllStandardError().constData());
            met = !QFileInfo::exists(keyFile());
            QVERIFY(isRefused(*start()));
            // Nothing of it is left that the next start would take for a client's.
            client->kill();
            QVERIFY(ended(*client));
            const auto next = start();
            QVERIFY2(isReady(*next), next->readAllStandardError().constData());
            QVERIFY(end(*next));
            QVERIFY(memory.isComplete());
        }
        QVERIFY(met);
    }

    void memoryThatAKilledClientLeftUnderTheKeyIsReleased()
    {
        bool met = false;
        for (int i = 0; i < 10 && !met; ++i) {
            const OtherMemory memory(nextKeys(), 1);
            const auto client = start();
            QVERIFY2(isReady(*client), client->readAllStandardError().constData());
            met = !memory.isComplete() && QFileInfo::exists(keyFile());
            QVERIFY(isRefused(*start()));
            QVERIFY(end(*client));
            QVERIFY(!QFileInfo::exists(keyFile()));
        }
        QVERIFY(met);
    }

    void memoryOfAnotherProgramUnderTheKeyOfAnEarlierClientIsLeftAlone_data()
    {
        QTest::addColumn<bool>("used");
        QTest::addColumn<int>("ageOfFile"); // in s, when the memory came
        QTest::newRow("used") << true << 86400;
        QTest::newRow("not used at the moment") << false << 86400;
        QTest::newRow("older than the file of a client killed while it looked") << true << -5;
    }
    void memoryOfAnotherProgramUnderTheKeyOfAnEarlierClientIsLeftAlone()
    {
        QFETCH(bool, used);
        QFETCH(int, ageOfFile);
        writeFile(keyFile(), "");
        QFile file(keyFile());
        QVERIFY(file.open(QIODevice::ReadWrite) &&
                file.setFileTime(QDateTime::currentDateTime().addSecs(-ageOfFile), QFileDevice::FileModificationTime));
        OtherMemory memory({keyOf(keyFile())}, 4096);
        QVERIFY(memory.isComplete());
        if (used)
            memory.attach();
        for (int i = 0; i < 2; ++i) {
            const auto client = start();
            QVERIFY2(isReady(*client), client->readAllStandardError().constData());
            QVERIFY(isRefused(*start()));
            QVERIFY(end(*client));
            QVERIFY(memory.isComplete());
        }
    }

    void memoryThatIsHeldUnderTheClientsNameEndsTheStart()
    {
        QSharedMemory lock(QStringLiteral("kestakljuc"));
        QVERIFY(lock.create(1));
        QVERIFY(isRefused(*start()));
        QVERIFY(QFileInfo::exists(keyFile()));
        QVERIFY(lock.detach());
        const auto client = start();
        QVERIFY(isReady(*client));
        QVERIFY(end(*client));
    }
};

QTEST_GUILESS_MAIN(UserLockTest)
#include "userlock_linux_test.moc"
