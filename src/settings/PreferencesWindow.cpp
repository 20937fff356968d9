#include "PreferencesWindow.h"

#include <QLabel>
#include <QVBoxLayout>

namespace vantalo {

PreferencesWindow::PreferencesWindow(QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::CustomizeWindowHint)
{
    setWindowTitle(title);
    setFixedSize(420, 420);
    auto* layout = new QVBoxLayout(this);
    auto* placeholder = new QLabel(tr("The shortcut, S3 and credential settings will live here."), this);
    placeholder->setAlignment(Qt::AlignCenter);
    placeholder->setWordWrap(true);
    layout->addWidget(placeholder);
}

} // namespace vantalo
