#pragma once

#include <QString>
#include <QUuid>

#include <functional>
#include <optional>

namespace vantalo {

// Shows a GIF in the floating preview panel; `historyItemId` is absent for a GIF that could not
// be kept in the history.
class PreviewPresenter
{
public:
    virtual ~PreviewPresenter() = default;
    virtual void show(const QString& gifPath, const std::optional<QUuid>& historyItemId) = 0;
    virtual void dismiss() = 0;
    // Fits the GIF shown under `budget` bytes, in the panel, into a new history entry; with
    // `replacing`, only the result is kept. A GIF that cannot fit is kept as it is, and the panel
    // says so.
    virtual void fitShown(qint64 budget, bool replacing) = 0;
    // Puts the GIF shown on the clipboard, and says so.
    virtual void copyShown() = 0;
    // A word on the GIF shown, on the panel for a few seconds.
    virtual void tell(const QString& notice) = 0;
    // Whether a fit is writing a GIF.
    virtual bool isWorking() const = 0;
    // A fit has ended, whichever way.
    std::function<void()> onWorkFinished;
    // "Trim and more…" for the GIF shown.
    std::function<void(const QString& gifPath, const std::optional<QUuid>& historyItemId)> onTrim;
    // Preferences, at the upload settings (a failed upload's button where they are the cause).
    std::function<void()> onOpenUploadSettings;
};

} // namespace vantalo
