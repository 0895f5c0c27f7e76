#include "ui/guide.h"

#include "tests/support/metamethods.h"
#include "tests/support/test.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <memory>

class GuideTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<Guide> m_guide;

protected:
    void setUp() override
    {
        m_guide = std::make_unique<Guide>(nullptr);
        m_guide->show();
    }
    void tearDown() override
    {
        m_guide.reset();
    }

private:
    /// The button that bears @p text; null when none does.
    QPushButton* button(const char* text) const
    {
        for (auto* candidate : m_guide->findChildren<QPushButton*>()) {
            if (candidate->text() == QLatin1String(text))
                return candidate;
        }
        return nullptr;
    }

    QLabel* labelWith(const QString& text) const
    {
        for (auto* candidate : m_guide->findChildren<QLabel*>()) {
            if (candidate->text() == text)
                return candidate;
        }
        return nullptr;
    }

    bool showsPicture(int step) const
    {
        const QImage expected = QPixmap(QStringLiteral(":/guide%1.png").arg(step)).toImage();
        if (expected.isNull())
            return false;
        for (const auto* label : m_guide->findChildren<QLabel*>()) {
            if (label->pixmap(Qt::ReturnByValue).toImage() == expected)
                return true;
        }
        return false;
    }

    QString stepText() const
    {
        for (const auto* label : m_guide->findChildren<QLabel*>()) {
            if (label->text().startsWith(QStringLiteral("Step ")))
                return label->text();
        }
        return {};
    }

    void press(const char* text)
    {
        QVERIFY(button(text));
        QTest::mouseClick(button(text), Qt::LeftButton);
    }

private slots:
    void slotsStandInTheirDeclaredOrder()
    {
        QCOMPARE(slotsOf(Guide::staticMetaObject),
                 (QStringList{QStringLiteral("moveForward()"), QStringLiteral("moveBack()")}));
    }

    void opensOnTheFirstOfFourStepsWithoutABackButton()
    {
        QCOMPARE(m_guide->windowTitle(), QStringLiteral("Welcome to Orvel Storage"));
        QVERIFY(labelWith(QStringLiteral("Step 1 of 4")));
        QLabel* text = labelWith(QStringLiteral("Orvel Storage is a special folder on your computer....."));
        QVERIFY(text);
        QVERIFY(text->wordWrap());
        QCOMPARE(text->textFormat(), Qt::RichText);
        QVERIFY(showsPicture(1));
        QVERIFY(button("Back")->isHidden());
        QVERIFY(button("Next")->isVisible());
        QVERIFY(button("Skip guide"));
    }

    void textPictureAndTheRowOfButtonsStandInTheirOrder()
    {
        auto* layout = qobject_cast<QVBoxLayout*>(m_guide->layout());
        QVERIFY(layout != nullptr);
        QCOMPARE(layout->count(), 3);
        const auto labelAt = [](QBoxLayout* box, int position) {
            return qobject_cast<QLabel*>(box->itemAt(position)->widget());
        };
        QCOMPARE(labelAt(layout, 0),
                 labelWith(QStringLiteral("Orvel Storage is a special folder on your computer.....")));
        QVERIFY(labelAt(layout, 1) != nullptr && labelAt(layout, 1)->pixmap(Qt::ReturnByValue).height() > 0);
        auto* row = qobject_cast<QHBoxLayout*>(layout->itemAt(2)->layout());
        QVERIFY(row != nullptr);
        QCOMPARE(row->count(), 4);
        QCOMPARE(labelAt(row, 0), labelWith(QStringLiteral("Step 1 of 4")));
        QCOMPARE(row->itemAt(1)->widget(), static_cast<QWidget*>(button("Back")));
        QCOMPARE(row->itemAt(2)->widget(), static_cast<QWidget*>(button("Skip guide")));
        QCOMPARE(row->itemAt(3)->widget(), static_cast<QWidget*>(button("Next")));
    }

    void buttonsActWhenTheyAreClickedAndNotWhenTheyArePressed()
    {
        press("Next");
        for (const char* text : {"Next", "Back", "Skip Guide"}) {
            QVERIFY(button(text) != nullptr);
            const QString before = stepText();
            QTest::mousePress(button(text), Qt::LeftButton);
            QCOMPARE(stepText(), before);
            QVERIFY(m_guide->isVisible());
            QTest::mouseRelease(button(text), Qt::LeftButton);
            QVERIFY(stepText() != before || !m_guide->isVisible());
        }
    }

    void everyStepHasItsTextAndPicture()
    {
        press("Next");
        QVERIFY(labelWith(QStringLiteral("There are three posible state of the destop app....")));
        QVERIFY(labelWith(QStringLiteral("Step 2 of 4")));
        QVERIFY(showsPicture(2));
        QVERIFY(button("Back")->isVisible());
        press("Next");
        QVERIFY(labelWith(QStringLiteral("Default setting for auto startup at login....")));
        QVERIFY(showsPicture(3));
        press("Next");
        QVERIFY(labelWith(QStringLiteral("Enjoy using ....")));
        QVERIFY(showsPicture(4));
    }

    void lastStepHasNoNextButtonAndGoingBackShowsItAgain()
    {
        for (int step = 1; step < 4; ++step)
            press("Next");
        QVERIFY(button("Next")->isHidden());
        QVERIFY(button("Close guide"));
        press("Back");
        QVERIFY(labelWith(QStringLiteral("Step 3 of 4")));
        QVERIFY(button("Next")->isVisible());
        QVERIFY(button("Skip Guide"));
    }

    void skipButtonKeepsItsCapitalAfterGoingBackFromTheThirdStep()
    {
        press("Next");
        QVERIFY(button("Skip guide"));
        press("Next");
        press("Back");
        press("Back");
        QVERIFY(labelWith(QStringLiteral("Step 1 of 4")));
        QVERIFY(button("Skip Guide"));
        QVERIFY(button("Back")->isHidden());
    }

    void stepsBeyondTheEndsChangeNothing()
    {
        QVERIFY(QMetaObject::invokeMethod(m_guide.get(), "moveBack"));
        QVERIFY(labelWith(QStringLiteral("Step 1 of 4")));
        for (int step = 1; step < 10; ++step)
            QVERIFY(QMetaObject::invokeMethod(m_guide.get(), "moveForward"));
        QVERIFY(labelWith(QStringLiteral("Step 4 of 4")));
    }

    void skippingClosesIt()
    {
        press("Skip guide");
        QVERIFY(!m_guide->isVisible());
    }

    void enterLeadsThroughToTheEnd()
    {
        QApplication::setActiveWindow(m_guide.get());
        for (int step = 1; step <= 4; ++step) {
            QVERIFY(labelWith(QStringLiteral("Step %1 of 4").arg(step)));
            QWidget* focus = m_guide->focusWidget();
            QTest::keyClick(focus != nullptr ? focus : m_guide.get(), Qt::Key_Return);
        }
        QVERIFY(!m_guide->isVisible());
    }

    void keyboardAloneLeadsThrough()
    {
        QApplication::setActiveWindow(m_guide.get());
        QTest::keyClick(m_guide.get(), Qt::Key_Return);
        QVERIFY(labelWith(QStringLiteral("Step 2 of 4")));
        QTest::keyClick(m_guide.get(), Qt::Key_Escape);
        QVERIFY(!m_guide->isVisible());
    }
};

QTEST_MAIN(GuideTest)
#include "guide_test.moc"
