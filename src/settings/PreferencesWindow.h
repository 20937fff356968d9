#pragma once

#include <QWidget>

namespace vantalo {

// The preferences window: titled, closable, 420 × 420 points.
class PreferencesWindow : public QWidget
{
    Q_OBJECT
public:
    static inline const QString title = QStringLiteral("Vantalo Preferences");

    explicit PreferencesWindow(QWidget* parent = nullptr);
};

} // namespace vantalo
