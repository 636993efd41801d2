#pragma once

#include "vrq/platform/services/SelfSignedCertificate.h"

#include <optional>
#include <string>
#include <vector>

using GstElement = struct _GstElement;

namespace vrq::rtc::engine {

// Writes an engine line ("(file:line function): message") to the kit's
// loggers when its severity (0 verbose to 3 error) reaches the engine's debug level.
void log(int severity, const char* file, int line, const char* function, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// The H.264 decoder element chosen at engine start: of those GStreamer
// offers, the one of highest rank that starts on this machine (a hardware
// decoder before the software ones, where its device answers). Empty when
// there is none.
const std::string& videoDecoderFactory();
// A new decoder of that kind, set up for low delay (slice threads rather
// than frame threads, which hold pictures back); null when there is none.
GstElement* makeVideoDecoder();

// The DTLS certificate of every connection of this process, made once at
// engine start; nothing if it could not be made (webrtcbin then uses its own).
const std::optional<SelfSignedCertificate>& certificate();

// Whether an audio output device can be expected (a sound server or an ALSA
// playback device). Without one the received audio is played into a null sink.
bool hasAudioOutput();

// The local addresses ICE may use from $VRQ_ICE_ADDRESSES (comma separated).
std::vector<std::string> iceAddressesFromEnvironment();

} // namespace vrq::rtc::engine

#define RTC_LOG(severity, ...) ::vrq::rtc::engine::log(severity, __FILE__, __LINE__, __func__, __VA_ARGS__)
