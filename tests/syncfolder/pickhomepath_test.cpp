#include "syncfolder/pickhomepath.h"

#include "syncfolder/folderchooser.h"
#include "tests/support/metamethods.h"
#include "tests/support/test.h"

#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QVBoxLayout>

#include <memory>

class PickHomepathTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<PickHomepath> m_dialog;
    QStringList m_events;
    QString m_caption;
    QString m_start;

protected:
    void setUp() override
    {
        m_dialog = std::make_unique<PickHomepath>(QStringLiteral("moveordel"), defaultPath(), nullptr);
        m_events.clear();
        connect(m_dialog.get(), SIGNAL(RootDeleted()), this, SLOT(noteDeleted()));
        connect(m_dialog.get(), SIGNAL(RootPathPicked(QString)), this, SLOT(notePicked(QString)));
        connect(m_dialog.get(), SIGNAL(finished(int)), this, SLOT(noteFinished(int)));
        m_dialog->show();
    }
    void tearDown() override
    {
        folderchooser::setAsker({});
        m_dialog.reset();
    }

private:
    static QString defaultPath()
    {
        return QDir::homePath() + QStringLiteral("/Orvel Storage");
    }
    void answerWith(const QString& folder)
    {
        folderchooser::setAsker([=](QWidget* parent, const QString& caption, const QString& start) {
            Q_UNUSED(parent)
            m_caption = caption;
            m_start = start;
            return folder;
        });
    }
    void press(int position)
    {
        QTest::mouseClick(m_dialog->findChildren<QPushButton*>().value(position), Qt::LeftButton);
    }

public slots:
    void noteDeleted()
    {
        m_events << QStringLiteral("deleted");
    }
    void notePicked(const QString& path)
    {
        m_events << QStringLiteral("picked ") + path;
    }
    void noteFinished(int result)
    {
        m_events << QStringLiteral("finished %1").arg(result);
    }

private slots:
    void signalsAndSlotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(PickHomepath::staticMetaObject),
                 (QStringList{QStringLiteral("RootDeleted()"), QStringLiteral("RootPathPicked(QString)")}));
        QCOMPARE(slotsOf(PickHomepath::staticMetaObject),
                 (QStringList{QStringLiteral("RootMoved()"), QStringLiteral("RootDeleted1()"),
                              QStringLiteral("DefaultPath()")}));
    }

    void asksWithTheLineBetweenTheTwoChoices()
    {
        QStringList texts;
        for (const auto* label : m_dialog->findChildren<QLabel*>())
            texts << label->text();
        QCOMPARE(texts, (QStringList{QStringLiteral("<b>Error</b>"),
                                     QStringLiteral("Orvel Storage folder was not found. Was it moved/renamed or "
                                                    "deleted?"),
                                     QStringLiteral("Moved/renamed:"), QStringLiteral("Deleted:")}));
        QCOMPARE(m_dialog->findChildren<QPushButton*>().value(0)->text(), QStringLiteral("Find"));
        QCOMPARE(m_dialog->findChildren<QPushButton*>().value(1)->text(), QStringLiteral("Restore"));
        auto* layout = qobject_cast<QVBoxLayout*>(m_dialog->layout());
        QCOMPARE(layout->count(), 5);
        auto* line = qobject_cast<QFrame*>(layout->itemAt(3)->widget());
        QVERIFY(line);
        QCOMPARE(line->frameStyle(), static_cast<int>(QFrame::HLine));
        QCOMPARE(qobject_cast<QLabel*>(layout->itemAt(0)->widget())->alignment(), Qt::AlignCenter);
        QVERIFY(m_dialog->windowTitle().isEmpty());
    }

    void otherModesBuildAnEmptyDialog()
    {
        const PickHomepath empty(QStringLiteral("other"), QStringLiteral("/x"), nullptr);
        QVERIFY(empty.findChildren<QLabel*>().isEmpty());
        QVERIFY(empty.findChildren<QPushButton*>().isEmpty());
    }

    void foundFolderIsReportedAndThenTheEnd()
    {
        answerWith(QStringLiteral("/mnt/Orvel"));
        press(0);
        QCOMPARE(m_events, (QStringList{QStringLiteral("picked /mnt/Orvel"), QStringLiteral("finished 1")}));
    }

    void chooserOpensInTheParentOfTheDefaultPath()
    {
        answerWith(QString());
        press(0);
        QCOMPARE(m_start, QDir::homePath());
        QCOMPARE(m_caption, QStringLiteral("Pick Orvel Storage folder"));
    }

    void cancelledChooserLeavesTheQuestionOpen()
    {
        answerWith(QString());
        press(0);
        QVERIFY(m_events.isEmpty());
        QVERIFY(m_dialog->isVisible());
    }

    void restoreReportsTheDeletionAndThenTheEnd()
    {
        press(1);
        QCOMPARE(m_events, (QStringList{QStringLiteral("deleted"), QStringLiteral("finished 1")}));
        QVERIFY(m_dialog->isVisible()); // its owner destroys it
    }

    void defaultPathIsReportedLikeAPickedOne()
    {
        QVERIFY(QMetaObject::invokeMethod(m_dialog.get(), "DefaultPath"));
        QCOMPARE(m_events, (QStringList{QStringLiteral("picked ") + defaultPath(), QStringLiteral("finished 1")}));
    }

    void closingItAnswersNothing()
    {
        m_dialog->close();
        QCOMPARE(m_events, QStringList{QStringLiteral("finished 0")});
    }

    void dialogDestroyedWhileTheChooserRunsIsOutlived()
    {
        folderchooser::setAsker([this](QWidget* parent, const QString& caption, const QString& start) {
            Q_UNUSED(parent)
            Q_UNUSED(caption)
            m_dialog.reset();
            return start;
        });
        QVERIFY(QMetaObject::invokeMethod(m_dialog.get(), "RootMoved"));
        QVERIFY(m_events.isEmpty());
    }
};

QTEST_MAIN(PickHomepathTest)
#include "pickhomepath_test.moc"
