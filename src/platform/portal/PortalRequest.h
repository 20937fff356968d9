#pragma once

#include "common/Failure.h"

#include <QDBusConnection>
#include <QVariantMap>

#include <chrono>
#include <expected>
#include <functional>

class QObject;

namespace vantalo {

// One desktop portal on the session bus, named in messages as the user would read it
// ("the screen-cast portal").
struct Portal
{
    QDBusConnection bus;
    QString interface; // org.freedesktop.portal.<Name>
    QString title;
};

// How long a portal may take to answer: a plain request, and one that may show the user a dialog
// (the permission to share the screen, the keys for a shortcut).
struct PortalTimeouts
{
    std::chrono::milliseconds request = std::chrono::seconds(10);
    std::chrono::milliseconds dialog = std::chrono::minutes(2);
    // From connecting to a shared screen's stream to its first picture.
    std::chrono::milliseconds firstFrame = std::chrono::seconds(20);
};

using PortalAnswer = std::function<void(std::expected<QVariantMap, Failure>)>;

// Calls `method` and hands `answer` the results of the Response that the request object sends
// back, or what went wrong: "Screen capture was not allowed"-style refusals come as
// `cancelledText`, an error as "<title> failed at <method>" or "<title> refused <method> (...)",
// silence past `timeout` as "<title> did not answer <method>" (the request is then closed).
// `answer` runs on `context`'s thread, and never once `context` is gone. Answers the request
// object's path.
QString portalRequest(const Portal& portal, const QString& method, const QVariantList& arguments,
                      QVariantMap options, std::chrono::milliseconds timeout, const QString& cancelledText,
                      QObject* context, PortalAnswer answer);

// A fresh token for a request or session handle.
QString portalToken();

} // namespace vantalo
