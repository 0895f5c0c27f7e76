#pragma once

#include <QDialog>
#include <QString>

class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

/// Shares one folder with another user, named by e-mail address: asks, then shows the engine's answer.
class ShareFolder final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ShareFolder)

public:
    /// @p id goes with the request unchanged; @p folderPath is the full path of the folder.
    ShareFolder(int id, const QString& folderPath, QWidget* parent);

    void done(int result) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    void newSharedFolder(QString user, QString pth, int id);
    /// The dialog was closed; its owner deletes it later, not from within the signal.
    void shareClosed(ShareFolder* s);

public slots:
    void shareFolderResult(int msgid, bool success, int msg);

private slots:
    void sharePressed();

private:
    int m_id;
    bool m_answered = false;
    QVBoxLayout* m_layout;
    QHBoxLayout* m_inputRow;
    QString m_folderPath;
    QLineEdit* m_email;
    QPushButton* m_button;
    QLabel* m_result;
};
