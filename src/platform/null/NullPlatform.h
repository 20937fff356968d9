#pragma once

#include "platform/NullCollaborators.h"
#include "platform/Platform.h"

namespace vantalo {

// A session Vantalo cannot capture or grab keys in; every service says why.
class NullPlatform final : public Platform
{
public:
    explicit NullPlatform(QString reason) : m_reason(std::move(reason)) {}

    QString name() const override { return QStringLiteral("null"); }
    std::unique_ptr<HotkeyRegistrar> createHotkeyManager(LinePrinter print) override;
    std::unique_ptr<FrameRecorder> createScreenRecorder() override;
    ScreenCapturePermission& screenCapturePermission() override { return m_permission; }
    bool compositingManagerRunning() const override { return true; }
    void setInputRegion(QWindow*, const QRegion&) override {}

    const QString& reason() const { return m_reason; }

private:
    QString m_reason;
    GrantedCapturePermission m_permission;
};

} // namespace vantalo
