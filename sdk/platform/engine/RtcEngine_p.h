#pragma once

#include <string>
#include <vector>

namespace vrq::rtc::engine {

// Writes an engine line ("(file:line function): message") to the kit's
// loggers when its severity (0 verbose to 3 error) reaches the engine's debug level.
void log(int severity, const char* file, int line, const char* function, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// The H.264 decoder element to use: "avdec_h264", else "openh264dec"; empty when neither exists.
std::string videoDecoderFactory();

// Whether an audio output device can be expected (a sound server or an ALSA
// playback device). Without one the received audio is played into a null sink.
bool hasAudioOutput();

// The local addresses ICE may use from $VRQ_ICE_ADDRESSES (comma separated).
std::vector<std::string> iceAddressesFromEnvironment();

} // namespace vrq::rtc::engine

#define RTC_LOG(severity, ...) ::vrq::rtc::engine::log(severity, __FILE__, __LINE__, __func__, __VA_ARGS__)
