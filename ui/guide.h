#pragma once

#include <QDialog>
#include <QString>

#include <array>

class QLabel;
class QPushButton;

/// The introduction of four pages, each a text and a picture. Its owner closes it when it has finished.
class Guide final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Guide)

public:
    explicit Guide(QWidget* parent);

private slots:
    void moveForward();
    void moveBack();

protected:
    bool event(QEvent* event) override;

private:
    static constexpr int stepCount = 4;

    void buildLayout();
    void reserveRoom();
    void showStep(int step);
    void showPicture();

    int m_step = 1;
    QLabel* m_picture;
    QLabel* m_text;
    QLabel* m_stepLabel;
    QPushButton* m_skip;
    QPushButton* m_next;
    QPushButton* m_back;
    std::array<QString, stepCount> m_texts;
};
