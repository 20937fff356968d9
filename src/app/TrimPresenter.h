#pragma once

#include <QString>

#include <functional>

namespace vantalo {

// The trim window ("Trim and more…") for a GIF: one at a time; asked again for the same GIF, it
// comes forward.
class TrimPresenter
{
public:
    virtual ~TrimPresenter() = default;
    virtual void open(const QString& gifPath) = 0;
    // Told the new GIF once it is saved (not yet in the history).
    std::function<void(const QString& gifPath)> onSaved;
};

} // namespace vantalo
