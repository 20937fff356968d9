#pragma once

#include "CaptureCollaborators.h"
#include "RecordingToolbarState.h"
#include "common/Console.h"
#include "hotkey/HotkeyRegistrar.h"
#include "recording/FrameEncoder.h"
#include "recording/FrameRecorder.h"

#include <QString>

namespace vantalo {

// Stand-ins for pieces this build cannot offer. They never pretend: a recorder that cannot
// capture fails its start with the reason, and an overlay that cannot be drawn shows nothing.

class NullRegionSelector final : public RegionSelector
{
public:
    void show() override {}
    void dismiss() override {}
};

class NullRegionAdjuster final : public RegionAdjuster
{
public:
    void show(const DisplayInfo&, const QRectF&) override {}
    void hide() override {}
};

class NullToolbarPresenter final : public ToolbarPresenter
{
public:
    void show(const QRectF&) override {}
    void hide() override {}
    std::optional<QSizeF> panelSize() const override { return std::nullopt; }
    void movePanel(const QPointF&) override {}
    RecordingToolbarState& toolbarState() override { return m_state; }

private:
    RecordingToolbarState m_state;
};

class NullBorderPresenter final : public BorderPresenter
{
public:
    void show(const QRectF&) override {}
    void hide() override {}
};

class UnavailableRecorder final : public FrameRecorder
{
public:
    explicit UnavailableRecorder(QString reason) : m_reason(std::move(reason)) {}
    void startRecording(const QRectF& region, const QString& displayName, int frameRate,
                        double maxDurationSeconds, StartDone done) override;
    void stopRecording(StopDone done) override;

private:
    QString m_reason;
};

class UnavailableEncoder final : public FrameEncoder
{
public:
    std::expected<QByteArray, Failure> encode(const FrameList& frames, double delaySeconds) const override;
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

class GrantedCapturePermission final : public ScreenCapturePermission
{
public:
    bool preflight() override { return true; }
    void request() override {}
};

} // namespace vantalo
