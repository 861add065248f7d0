// The mixer facade. This configuration has no sound output: a handle is a stopwatch that
// remembers that its track "plays" and how many milliseconds that has lasted. Real output would
// live behind these same functions. Every function holds gHandlesMutex for its whole run and
// looks a handle up in gHandles first, so a stale handle is harmless here.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace orvane::audio {

struct SailfishAudioHandle {
    std::string path;  // OpenMP3File only
    uint32_t sampleRate = 0;
    uint16_t channels = 0;
    uint64_t sampleCount = 0;
    bool playing = false;
    bool playFlag = false;  // kept for a mixer that makes sound
    uint64_t baseOffsetMs = 0;
    std::chrono::steady_clock::time_point startedAt{};
};

extern std::mutex gHandlesMutex;

// Only tests the file's existence: nothing decodes it in this configuration.
void* OpenMP3File(const char* path);
// The samples are neither copied nor kept; a mixer that plays them needs them until Close.
void* OpenPCMTrack(const int16_t* samples, uint64_t sampleCount, uint32_t sampleRate, uint16_t channels);
bool Play(void* handle, uint64_t offsetMs, bool flag);
uint64_t GetCurrentOffset(void* handle);
uint64_t Stop(void* handle);
void StopAll();
void Close(void* handle);
// How many handles are open: for tests and leak checks.
size_t OpenHandleCount();

}  // namespace orvane::audio
