#include "app/AppDelegate.h"
#include "app/GifTool.h"
#include "app/SingleInstance.h"
#include "app/StatusIcon.h"
#include "capture/CaptureCoordinator.h"
#include "capture/RecordingBorderOverlay.h"
#include "capture/RecordingToolbarWindowController.h"
#include "history/GifHistoryStore.h"
#include "history/HistoryPanelController.h"
#include "history/TrimWindowController.h"
#include "hotkey/HotkeyRegistrar.h"
#include "hotkey/ShortcutLabel.h"
#include "overlays/RegionPreviewOverlay.h"
#include "overlays/RegionSelectionWindowController.h"
#include "platform/DesktopSession.h"
#include "platform/NullCollaborators.h"
#include "platform/Platform.h"
#include "recording/GifEncoder.h"
#include "recording/ScreenRecorder.h"
#include "settings/HotkeySettingsNotifier.h"
#include "settings/KeychainStore.h"
#include "settings/QtKeychainSecretStore.h"
#include "settings/SettingsKeys.h"
#include "settings/ShortcutSettings.h"
#include "settings/UserDefaults.h"
#include "sharing/CloudUploader.h"
#include "sharing/HostedUploader.h"
#include "sharing/PreviewPanelController.h"
#include "sharing/S3Request.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QProcessEnvironment>
#include <QSocketNotifier>
#include <QTimer>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include <cstdio>
#include <optional>

using namespace vantalo;

namespace {

// SIGTERM (a logout) reaches the event loop through this pipe.
int g_terminationPipe[2] = {-1, -1};

void onTermination(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(g_terminationPipe[1], &byte, 1);
}

struct Request
{
    bool toggle = false;
    bool lastRegion = false;     // with toggle: straight to the last recorded region
    bool pause = false;          // pause or resume the running instance's recording
    std::optional<int> exitCode; // set when the command line is done without the tray
};

// Parsed before the GUI exists, so --help, --version, a hand-over to the running instance and the
// GIF tool work without a display.
Request parseCommandLine(int& argc, char** argv)
{
    QCoreApplication core(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vantalo"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VANTALO_VERSION));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Vantalo records a region of the screen as an animated GIF. It lives in the system tray.\n\n"
        "Given a GIF, it writes it smaller and exits, without a display:\n"
        "  vantalo --fit 10MB IN.gif -o OUT.gif\n"
        "  vantalo --scale 1 --fps 10 --lossy 60 IN.gif -o OUT.gif"));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption toggle(QStringLiteral("toggle"),
                                    QStringLiteral("Act as a press of the recording shortcut (starts Vantalo "
                                                   "first if it is not running)."));
    const QCommandLineOption lastRegion(QStringLiteral("last-region"),
                                        QStringLiteral("With --toggle: start with the last recorded region "
                                                       "(the selection where there is none)."));
    const QCommandLineOption pause(QStringLiteral("pause"),
                                   QStringLiteral("Pause the recording under way, or resume it (for a key "
                                                  "binding of the desktop)."));
    const QCommandLineOption fit(QStringLiteral("fit"),
                                 QStringLiteral("Write the GIF at the best quality that is at most <size> "
                                                "(10MB, 2.5MB, 800KB; a MB is 1,000,000 bytes)."),
                                 QStringLiteral("size"));
    const QCommandLineOption scale(QStringLiteral("scale"),
                                   QStringLiteral("2 keeps the GIF's size; 1 halves it (a pixel a point for "
                                                  "Vantalo's own GIFs)."),
                                   QStringLiteral("1|2"));
    const QCommandLineOption fps(QStringLiteral("fps"),
                                 QStringLiteral("The most frames a second to keep; the GIF lasts as long."),
                                 QStringLiteral("rate"));
    const QCommandLineOption lossy(QStringLiteral("lossy"),
                                   QStringLiteral("Lossy compression from 0 (none) to 100 (smallest)."),
                                   QStringLiteral("level"));
    const QCommandLineOption output({QStringLiteral("o"), QStringLiteral("output")},
                                    QStringLiteral("Where to write the GIF."), QStringLiteral("file"));
    parser.addOptions({toggle, lastRegion, pause, fit, scale, fps, lossy, output});
    parser.addPositionalArgument(QStringLiteral("GIF"), QStringLiteral("A GIF to write smaller (with -o)."));
    if (!parser.parse(core.arguments())) {
        std::fprintf(stderr, "vantalo: %s (see vantalo --help)\n", qPrintable(parser.errorText()));
        return Request{false, false, false, 2};
    }
    parser.process(core); // --help, --help-all and --version print and exit
    const bool tool = !parser.positionalArguments().isEmpty() ||
                      std::ranges::any_of(QList{fit, scale, fps, lossy, output},
                                          [&parser](const QCommandLineOption& o) { return parser.isSet(o); });
    if (tool) {
        return Request{false, false, false,
                       runGifTool(GifToolRequest{parser.value(fit), parser.value(scale), parser.value(fps),
                                                 parser.value(lossy), parser.positionalArguments(),
                                                 parser.value(output)})};
    }
    if (parser.isSet(lastRegion) && !parser.isSet(toggle)) {
        std::fprintf(stderr, "vantalo: --last-region goes with --toggle (see vantalo --help)\n");
        return Request{false, false, false, 2};
    }
    if (parser.isSet(pause) && parser.isSet(toggle)) {
        std::fprintf(stderr, "vantalo: --pause goes alone (see vantalo --help)\n");
        return Request{false, false, false, 2};
    }
    return Request{parser.isSet(toggle), parser.isSet(lastRegion), parser.isSet(pause), std::nullopt};
}

} // namespace

int main(int argc, char** argv)
{
    const Request request = parseCommandLine(argc, argv);
    if (request.exitCode) {
        return *request.exitCode;
    }
    const QString socketPath = SingleInstance::defaultSocketPath();
    const QByteArray handedOver = request.pause        ? SingleInstance::pauseMessage
                                  : !request.toggle    ? SingleInstance::activateMessage
                                  : request.lastRegion ? SingleInstance::toggleLastRegionMessage
                                                       : SingleInstance::toggleMessage;
    // The exit code when a running Vantalo took the request, or is there but busy.
    const auto handOver = [&]() -> std::optional<int> {
        switch (SingleInstance::sendToRunningInstance(socketPath, handedOver)) {
        case SingleInstance::Handover::delivered:
            if (!request.toggle && !request.pause) {
                printLineToStdout(QStringLiteral("Vantalo is already running"));
            }
            return 0;
        case SingleInstance::Handover::noAnswer:
            // Starting a second Vantalo beside a busy one would take its socket and its shortcut.
            printLineToStdout(QStringLiteral("Vantalo is running but did not answer: try again in a moment"));
            return 1;
        case SingleInstance::Handover::noInstance:
            break;
        }
        return std::nullopt;
    };
    if (const std::optional<int> code = handOver()) {
        return *code;
    }
    if (request.pause) {
        printLineToStdout(QStringLiteral("Nothing to pause: Vantalo is not running"));
        return 1;
    }

    // On a Wayland desktop the windows are XWayland's: only X11 lets Vantalo place its overlays,
    // toolbar and panel and keep them above other windows.
    const DesktopSession session = desktopSession(QProcessEnvironment::systemEnvironment());
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        if (session == DesktopSession::waylandOnly) {
            printLineToStdout(
                QStringLiteral("Vantalo needs XWayland in a Wayland session: install it (the xwayland "
                               "package), enable it in your desktop if it is off, and start Vantalo "
                               "again"));
            return 1;
        }
        if (session == DesktopSession::waylandWithXWayland) {
            qputenv("QT_QPA_PLATFORM", "xcb");
        }
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantalo"));
    QApplication::setOrganizationName(QStringLiteral("Vantalo"));
    QApplication::setApplicationVersion(QStringLiteral(VANTALO_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("vantalo"));
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setWindowIcon(applicationIcon());

    SingleInstance instance(socketPath);
    if (!instance.listen()) {
        // Another Vantalo started at the same moment and took the socket first.
        if (const std::optional<int> code = handOver()) {
            return *code;
        }
        printLineToStdout(
            QStringLiteral("Cannot listen on %1: starting Vantalo again will not reach this one")
                .arg(QDir::toNativeSeparators(socketPath)));
    }

    const LinePrinter print = stdoutPrinter();
    UserDefaults defaults;
    Platform platform = loadPlatform(
        PlatformStore{
            .restoreToken =
                [&defaults] {
                    return defaults.stringForKey(SettingsKey::screenCastRestoreToken).value_or(QString());
                },
            .storeRestoreToken =
                [&defaults](const QString& token) {
                    defaults.setString(SettingsKey::screenCastRestoreToken, token);
                },
        },
        print);
    QtKeychainSecretStore secrets(keychainService, print);
    KeychainStore keychain(secrets);
    HotkeySettingsNotifier hotkeySettings;
    GifHistoryStore historyStore(GifHistoryStore::defaultBaseDirectory(), print);
    // A recording finished just before a crash is listed again.
    historyStore.recover(QDir::tempPath());

    WindowSystem& windows = *platform.windows;
    const auto compositing = [&windows] { return windows.compositingManagerRunning(); };
    std::unique_ptr<FrameRecorder> recorder;
    if (platform.capture) {
        auto screenRecorder =
            std::make_unique<ScreenRecorder>(std::move(platform.capture), ScreenRecorder::screenPixelRatio);
        screenRecorder->setInputSource(std::move(platform.input));
        recorder = std::move(screenRecorder);
    } else {
        recorder = std::make_unique<UnavailableRecorder>(platform.choice.noCaptureReason);
    }
    // The selection and the region preview paint the same pictures of the screen.
    const auto stills = std::make_shared<ScreenStills>();
    CaptureCollaborators collaborators{
        std::move(platform.shortcut),
        std::move(recorder),
        std::make_shared<GifEncoder>(),
        std::make_unique<RegionSelectionWindowController>(
            compositing, [&windows] { return windows.windowFrames(); }, stills),
        std::make_unique<RecordingToolbarWindowController>(
            compositing,
            [&windows](QWindow* window, const QRegion& region) { windows.setInputRegion(window, region); }),
        std::make_unique<RecordingBorderOverlay>(compositing),
        std::make_unique<RegionPreviewOverlay>(compositing, stills),
        std::move(platform.pauseShortcut),
        std::move(platform.lastRegionShortcut),
    };
    auto coordinator =
        std::make_unique<CaptureCoordinator>(std::move(collaborators), defaults, *platform.permission, print);
    // Uploads read the settings and credentials as they are then; the endpoint is checked now too
    // (not the keyring: one that asks for a password would hold the start).
    const QString s3Endpoint = CloudUploader::Config::loadEndpoint(defaults);
    auto hostedUploader = HostedUploader::create();
    if (const auto problem = s3EndpointProblem(s3Endpoint); problem && !hostedUploader) {
        print(QStringLiteral("Uploads will fail: ") + *problem + QStringLiteral(" (the endpoint is ") +
              s3Endpoint + QStringLiteral(")"));
    }
    PreviewPanelServices panelServices{
        .historyStore = historyStore,
        .cloudUploader = std::make_unique<CloudUploader>(
            [&defaults, &keychain] { return CloudUploader::Config::load(defaults, keychain); }),
        .hostedUploader = std::move(hostedUploader),
        .scheduler = std::make_unique<TimerScheduler>(),
        .compositing = compositing,
        .openUrl = {},
        .print = print,
    };
    auto previewPanel = std::make_unique<PreviewPanelController>(std::move(panelServices));
    // The coordinator lives as long as the delegate that takes it over.
    auto historyPanel = std::make_unique<HistoryPanelController>(
        historyStore, [coordinator = coordinator.get()] { return coordinator->shortcutLabel(); });
    AppDelegate delegate(AppServices{defaults, keychain, hotkeySettings, *platform.permission, historyStore,
                                     print, [] { QCoreApplication::quit(); },
                                     session == DesktopSession::waylandWithXWayland},
                         std::move(coordinator), std::move(previewPanel), std::move(historyPanel),
                         std::make_unique<TrimWindowController>());

    QObject::connect(&instance, &SingleInstance::messageReceived, &delegate,
                     [&delegate](const QByteArray& message) {
                         if (message == SingleInstance::toggleMessage ||
                             message == SingleInstance::toggleLastRegionMessage) {
                             delegate.toggleCapture(message == SingleInstance::toggleLastRegionMessage);
                         } else if (message == SingleInstance::pauseMessage) {
                             delegate.togglePause();
                         }
                     });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate, &AppDelegate::applicationWillTerminate);
    // A logout quits as Quit does (a recording under way is saved first), within 5 s.
    std::unique_ptr<QSocketNotifier> termination;
    if (::pipe2(g_terminationPipe, O_CLOEXEC | O_NONBLOCK) == 0) {
        termination = std::make_unique<QSocketNotifier>(g_terminationPipe[0], QSocketNotifier::Read);
        QObject::connect(termination.get(), &QSocketNotifier::activated, &delegate, [&delegate] {
            char byte = 0;
            while (::read(g_terminationPipe[0], &byte, 1) > 0) {
            }
            delegate.quit();
            QTimer::singleShot(5000, qApp, &QCoreApplication::quit);
        });
        struct sigaction action = {};
        action.sa_handler = onTermination;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(SIGTERM, &action, nullptr);
    }
    QTimer::singleShot(0, &delegate, [&delegate, request] {
        delegate.setupApplication();
        if (request.toggle) {
            delegate.toggleCapture(request.lastRegion);
        }
    });
    return QApplication::exec();
}
