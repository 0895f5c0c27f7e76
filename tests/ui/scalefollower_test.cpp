// A screen's scale changes while the program runs. Qt is told of another one by way of a property that it reads
// where the environment asks for it; the window gets its size in pixels as Windows gives it.

#include "tests/ui/windowtest.h"

#include <QIconEngine>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <QWindow>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

namespace
{

/// An icon that counts how often a picture is made of it.
class CountingIcon final : public QIconEngine
{
public:
    explicit CountingIcon(int* pictures)
        : m_pictures(pictures)
    {
    }
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override
    {
        Q_UNUSED(mode)
        Q_UNUSED(state)
        painter->fillRect(rect, Qt::red);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        ++*m_pictures;
        QPixmap picture(size);
        picture.fill(Qt::transparent);
        QPainter painter(&picture);
        paint(&painter, picture.rect(), mode, state);
        return picture;
    }
    QIconEngine* clone() const override
    {
        return new CountingIcon(m_pictures);
    }

private:
    int* m_pictures;
};

} // namespace

class ScaleFollowerTest final : public WindowTest
{
    Q_OBJECT

protected:
    void tearDown() override
    {
        tellQt(1);
        WindowTest::tearDown();
    }

private:
    static void tellQt(qreal scale)
    {
        QScreen* screen = QGuiApplication::primaryScreen();
        screen->setProperty("_q_scaleFactor", scale);
        emit screen->logicalDotsPerInchChanged(screen->logicalDotsPerInch());
        QCoreApplication::processEvents();
    }

#ifdef Q_OS_WIN
    static QSize pixelsOf(const QWidget& window)
    {
        RECT rect = {};
        GetClientRect(reinterpret_cast<HWND>(window.winId()), &rect);
        return {rect.right, rect.bottom};
    }

    /// As Windows does it: the frame stays as it is here, what is within gets the new scale.
    static void tellWindow(const QWidget& window, qreal before, qreal scale)
    {
        const auto handle = reinterpret_cast<HWND>(window.winId());
        RECT outer = {};
        GetWindowRect(handle, &outer);
        const QSize inner = pixelsOf(window);
        outer.right += qRound(inner.width() * (scale / before)) - inner.width();
        outer.bottom += qRound(inner.height() * (scale / before)) - inner.height();
        const auto dotsPerInch = static_cast<WORD>(qRound(96 * scale));
        SendMessageW(handle, 0x02E0 /* WM_DPICHANGED */, MAKEWPARAM(dotsPerInch, dotsPerInch),
                     reinterpret_cast<LPARAM>(&outer));
        QCoreApplication::processEvents();
    }

private slots:
    void windowShowsTheSameInTheSizeThatWindowsGivesIt_data()
    {
        QTest::addColumn<bool>("qtKnowsFirst");
        QTest::newRow("window first") << false;
        QTest::newRow("Qt first") << true;
    }
    void windowShowsTheSameInTheSizeThatWindowsGivesIt()
    {
        QFETCH(bool, qtKnowsFirst);
        DialogCld& dialog = create();
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        const QSize size = dialog.size();
        QCOMPARE(pixelsOf(dialog), size);
        qreal before = 1;
        for (const qreal scale : {1.5, 2.0, 1.0, 2.0, 1.5, 1.0}) {
            const int factor = qRound(scale); // as Qt takes it
            if (qtKnowsFirst)
                tellQt(factor);
            tellWindow(dialog, before, scale);
            if (!qtKnowsFirst)
                tellQt(factor);
            const auto isRight = [&] {
                const QSize pixels = pixelsOf(dialog);
                return dialog.width() == size.width() && qAbs(dialog.height() - size.height()) <= 3 &&
                       pixels.width() == size.width() * factor &&
                       qAbs(pixels.height() - size.height() * factor) <= 3 * factor;
            };
            QVERIFY2(QTest::qWaitFor(isRight, deadline()), qPrintable(QString::number(scale)));
            before = scale;
        }
    }

    void windowGetsMoreRoomForLargerTexts()
    {
        DialogCld& dialog = create();
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        const QSize size = dialog.size();
        tellWindow(dialog, 1, 1.25);
        QCOMPARE(dialog.width(), qRound(size.width() * 1.25));
    }

    void trayIconIsMadeAnew()
    {
        DialogCld& dialog = create();
        int pictures = 0;
        auto& tray = const_cast<QSystemTrayIcon&>(dialog.tray());
        tray.setIcon(QIcon(new CountingIcon(&pictures)));
        const int before = pictures;
        QVERIFY(before > 0);
        tellQt(1.5);
        EVENTUALLY(pictures > before);
    }
#endif

private slots:
    void guideShowsAFinerPicture()
    {
        DialogCld& dialog = create();
        dialog.show();
        dialog.openGuide();
        QLabel* picture = nullptr;
        for (QWidget* window : QApplication::topLevelWidgets()) {
            for (auto* label : window->findChildren<QLabel*>()) {
                if (!label->pixmap(Qt::ReturnByValue).isNull())
                    picture = label;
            }
        }
        QVERIFY(picture != nullptr && picture->isVisible());
        for (const qreal scale : {1.5, 2.0, 1.0}) {
            tellQt(scale);
            EVENTUALLY_EQUAL(picture->pixmap(Qt::ReturnByValue).devicePixelRatio(), scale);
            QCOMPARE(picture->pixmap(Qt::ReturnByValue).size(), QSize(600, 340) * scale);
        }
    }
};

int main(int argc, char* argv[])
{
    qputenv("QT_SCREEN_SCALE_FACTORS", "1.5"); // with 1 it would not ask later
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    (void)application.devicePixelRatio(); // so that pictures for more than one dot a pixel are looked for from now on
    QGuiApplication::primaryScreen()->setProperty("_q_scaleFactor", 1.0);
    ScaleFollowerTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "scalefollower_test.moc"
