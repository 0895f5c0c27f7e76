#pragma once

#include <QDialog>
#include <QString>

class QVBoxLayout;

/// Asks what happened to a sync folder that is gone: moved or renamed (the user then points at it), or
/// deleted. It reports the answer by its signals and then emits finished(1) itself; its owner destroys it.
class PickHomepath final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PickHomepath)

public:
    /// @p mode is "moveordel"; any other gives an empty dialog. @p defaultPath is where the folder would
    /// lie by default; the folder chooser opens in its parent.
    PickHomepath(const QString& mode, const QString& defaultPath, QWidget* parent);

signals:
    void RootDeleted();
    void RootPathPicked(QString path);

private slots:
    void RootMoved();
    void RootDeleted1();
    void DefaultPath();

private:
    void buildMoveOrDelete();

    QString m_defaultPath;
    QVBoxLayout* m_layout = nullptr;
};
