#pragma once

#include "engine/enginestate.h"

#include <QString>

#include <optional>

/// What the tray shows for a state of the engine.
struct TrayStatus
{
    QString icon; ///< resource path
    QString toolTip;
};

/// The tray's status, or none when the state says nothing about it. @p title begins the tool tip.
std::optional<TrayStatus> trayStatus(const EngineState& state, const QString& title);
