#include "ui/sharefolder.h"

#include "tests/support/metamethods.h"
#include "tests/support/test.h"
#include "tests/ui/oneword.h"

#include <QBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>

#include <memory>

class ShareFolderTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<ShareFolder> m_dialog;

protected:
    void setUp() override
    {
        m_dialog = std::make_unique<ShareFolder>(17, QStringLiteral("/home/ana/Orvel Storage/Slike"), nullptr);
        m_dialog->show();
    }
    void tearDown() override
    {
        m_dialog.reset();
    }

private:
    QPushButton* button() const
    {
        return m_dialog->findChild<QPushButton*>();
    }
    QLineEdit* email() const
    {
        return m_dialog->findChild<QLineEdit*>();
    }
    QString result() const
    {
        return m_dialog->findChildren<QLabel*>().last()->text();
    }
    void answer(bool success, int code)
    {
        m_dialog->shareFolderResult(17, success, code);
    }

private slots:
    void signalsAndSlotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(ShareFolder::staticMetaObject),
                 (QStringList{QStringLiteral("newSharedFolder(QString,QString,int)"),
                              QStringLiteral("shareClosed(ShareFolder*)")}));
        QCOMPARE(slotsOf(ShareFolder::staticMetaObject),
                 (QStringList{QStringLiteral("shareFolderResult(int,bool,int)"), QStringLiteral("sharePressed()")}));
    }

    void asksForAnAddress()
    {
        QCOMPARE(m_dialog->windowTitle(), QStringLiteral("Folder sharing"));
        QCOMPARE(button()->text(), QStringLiteral("Find"));
        QCOMPARE(m_dialog->findChildren<QLabel*>().first()->text(), QStringLiteral("Email of user"));
        QCOMPARE(m_dialog->findChildren<QLabel*>().first()->buddy(), static_cast<QWidget*>(email()));
        QCOMPARE(QWidget::keyboardGrabber(), static_cast<QWidget*>(email()));
    }

    void requestCarriesAddressFolderAndNumber()
    {
        QSignalSpy requests(m_dialog.get(), SIGNAL(newSharedFolder(QString, QString, int)));
        QTest::keyClicks(email(), QStringLiteral("bo@orvel.example"));
        QTest::mouseClick(button(), Qt::LeftButton);
        QCOMPARE(requests.value(0), (QVariantList{QStringLiteral("bo@orvel.example"),
                                                  QStringLiteral("/home/ana/Orvel Storage/Slike"), 17}));
    }

    void findPressedTwiceSendsTwoRequests()
    {
        const QSignalSpy requests(m_dialog.get(), SIGNAL(newSharedFolder(QString, QString, int)));
        QTest::mouseClick(button(), Qt::LeftButton);
        QTest::mouseClick(button(), Qt::LeftButton);
        QCOMPARE(requests.count(), 2);
    }

    void buttonActsWhenItIsPressedAndNotAgainWhenItIsReleased()
    {
        const QSignalSpy requests(m_dialog.get(), SIGNAL(newSharedFolder(QString, QString, int)));
        QTest::mousePress(button(), Qt::LeftButton);
        QCOMPARE(requests.count(), 1);
        QTest::mouseRelease(button(), Qt::LeftButton);
        QCOMPARE(requests.count(), 1);
        answer(true, 0);
        QTest::mousePress(button(), Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());
    }

    void inputRowHoldsCaptionAddressAndButton()
    {
        auto* layout = qobject_cast<QBoxLayout*>(m_dialog->layout());
        QCOMPARE(layout->direction(), QBoxLayout::TopToBottom);
        auto* row = qobject_cast<QBoxLayout*>(layout->itemAt(0)->layout());
        QVERIFY(row != nullptr);
        QCOMPARE(row->direction(), QBoxLayout::LeftToRight);
        QCOMPARE(row->count(), 3);
        QCOMPARE(qobject_cast<QLabel*>(row->itemAt(0)->widget())->text(), QStringLiteral("Email of user"));
        QCOMPARE(row->itemAt(1)->widget(), static_cast<QWidget*>(email()));
        QCOMPARE((QVector<int>{row->stretch(0), row->stretch(1), row->stretch(2)}), (QVector<int>{0, 1, 0}));
        QCOMPARE(row->itemAt(2)->widget(), static_cast<QWidget*>(button()));
        QCOMPARE(layout->count(), 2);
        QVERIFY(qobject_cast<QLabel*>(layout->itemAt(1)->widget()) != nullptr);
        answer(true, 0);
        QCOMPARE(row->count(), 2);
        QCOMPARE(layout->count(), 3);
        QVERIFY(button()->isVisible());
    }

    void refusalHasItsText_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        QTest::newRow("0") << 0 << "Path not found";
        QTest::newRow("1") << 1 << "Only owner has the right to share folder with others";
        QTest::newRow("2") << 2 << "Folder above or below this one has already been shared";
        QTest::newRow("3") << 3 << "Server error. Please try later.";
        QTest::newRow("4") << 4 << "User does not exist";
        QTest::newRow("unknown") << 7 << "";
        QTest::newRow("negative") << -1 << "";
    }
    void refusalHasItsText()
    {
        QFETCH(int, code);
        QFETCH(QString, text);
        answer(false, code);
        QCOMPARE(result(), text);
        QCOMPARE(button()->text(), QStringLiteral("OK"));
        QVERIFY(button()->isEnabled());
        QVERIFY(!email()->isEnabled());
        QVERIFY(log().contains(QStringLiteral("sharefolderresult  17 false %1").arg(code)));
    }

    void successIgnoresTheCode()
    {
        answer(true, 3);
        QCOMPARE(result(), QStringLiteral("Sharing succeeded"));
        QCOMPARE(m_dialog->findChildren<QLabel*>().last()->alignment(), Qt::AlignCenter);
    }

    void answeredButtonStandsUnderTheResultAndCloses()
    {
        QSignalSpy closed(m_dialog.get(), SIGNAL(shareClosed(ShareFolder*)));
        answer(true, 0);
        auto* layout = qobject_cast<QBoxLayout*>(m_dialog->layout());
        QCOMPARE(layout->itemAt(layout->count() - 1)->widget(), static_cast<QWidget*>(button()));
        QTest::mouseClick(button(), Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());
        QCOMPARE(closed.count(), 1);
        QVERIFY(QWidget::keyboardGrabber() == nullptr);
    }

    void buttonDoesWhatItIsThereForWhateverItIsCalled()
    {
        const OneWord language({QStringLiteral("Find"), QStringLiteral("OK")});
        m_dialog = std::make_unique<ShareFolder>(17, QStringLiteral("/f"), nullptr);
        m_dialog->show();
        const QSignalSpy requests(m_dialog.get(), SIGNAL(newSharedFolder(QString, QString, int)));
        QCOMPARE(button()->text(), OneWord::word());
        QTest::mouseClick(button(), Qt::LeftButton);
        QVERIFY(m_dialog->isVisible());
        QCOMPARE(requests.count(), 1);
        answer(false, 4);
        QCOMPARE(button()->text(), OneWord::word());
        QTest::mouseClick(button(), Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());
        QCOMPARE(requests.count(), 1);
    }

    void escapeClosesIt()
    {
        const QSignalSpy closed(m_dialog.get(), SIGNAL(shareClosed(ShareFolder*)));
        QTest::keyClick(m_dialog.get(), Qt::Key_Escape);
        QVERIFY(!m_dialog->isVisible());
        QCOMPARE(closed.count(), 1);
    }
};

QTEST_MAIN(ShareFolderTest)
#include "sharefolder_test.moc"
