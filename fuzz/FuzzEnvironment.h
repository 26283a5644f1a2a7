#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

class QApplication;

/// What every fuzz target shares: one application object for the process and a log that writes
/// nothing, so the fuzzer's own report stays readable and each input runs at full speed.
class FuzzEnvironment
{
public:
    FuzzEnvironment() = delete;

    /// Routes the kit's log lines to a handler that drops them (each line is still formatted).
    static void silenceLog();
    /// The process's QApplication, created on first use on the offscreen platform unless
    /// QT_QPA_PLATFORM names another.
    static QApplication *application();
    /// The input as bytes, without a copy: the sanitizer sees reads past its end.
    static QByteArray bytes(const uint8_t *data, size_t size);
};
