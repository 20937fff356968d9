#pragma once

#include "capture/CaptureCollaborators.h"
#include "common/Console.h"
#include "hotkey/HotkeyRegistrar.h"
#include "platform/Platform.h"
#include "recording/FrameRecorder.h"

#include <QString>

namespace vantalo {

// Stand-ins for services a session cannot offer. They never pretend: a recorder that cannot
// capture fails its start with the reason, and a shortcut that cannot be grabbed says so.

class UnavailableRecorder final : public FrameRecorder
{
public:
    explicit UnavailableRecorder(QString reason) : m_reason(std::move(reason)) {}
    void startRecording(const QRectF& region, const QString& displayName, int frameRate,
                        double maxDurationSeconds, StartDone done) override;
    void stopRecording(StopDone done) override;
    // Nothing ever records, so nothing pauses.
    void pauseRecording() override {}
    void resumeRecording(const QRectF&) override {}
    bool isPaused() const override { return false; }

private:
    QString m_reason;
};

class UnavailableHotkeyRegistrar final : public HotkeyRegistrar
{
public:
    explicit UnavailableHotkeyRegistrar(LinePrinter print) : m_print(std::move(print)) {}
    void registerHotkey(const Shortcut& shortcut, std::function<void()> handler) override;
    void unregisterHotkey() override {}

private:
    LinePrinter m_print;
};

// No window system Vantalo knows: windows are taken as composited and whole to the mouse.
class NullWindowSystem final : public WindowSystem
{
public:
    bool compositingManagerRunning() const override { return true; }
    void setInputRegion(QWindow*, const QRegion&) override {}
    std::optional<QList<QRect>> windowFrames() const override { return std::nullopt; }
};

class GrantedCapturePermission final : public ScreenCapturePermission
{
public:
    bool preflight() override { return true; }
    void request() override {}
};

} // namespace vantalo
