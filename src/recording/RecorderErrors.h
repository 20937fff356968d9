#pragma once

#include <QString>

namespace vantalo {

enum class ScreenRecorderError
{
    noDisplayFound,
    permissionDenied,
    captureConfigurationFailed,
};

inline QString describe(ScreenRecorderError error)
{
    switch (error) {
    case ScreenRecorderError::noDisplayFound:
        return QStringLiteral("No display found for the selected region");
    case ScreenRecorderError::permissionDenied:
        return QStringLiteral("Screen recording permission not granted");
    case ScreenRecorderError::captureConfigurationFailed:
        return QStringLiteral("Failed to configure screen capture");
    }
    return {};
}

enum class GifEncoderError
{
    destinationCreationFailed,
    encodingFailed,
};

inline QString describe(GifEncoderError error)
{
    switch (error) {
    case GifEncoderError::destinationCreationFailed:
        return QStringLiteral("Failed to create GIF destination");
    case GifEncoderError::encodingFailed:
        return QStringLiteral("Failed to encode GIF");
    }
    return {};
}

} // namespace vantalo
