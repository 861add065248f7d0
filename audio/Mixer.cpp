#include "audio/Mixer.h"

#include <cstdio>
#include <limits>
#include <memory>
#include <unordered_map>

namespace orvane::audio {

std::mutex gHandlesMutex;

namespace {

std::unordered_map<void*, std::unique_ptr<SailfishAudioHandle>> gHandles;

SailfishAudioHandle* find(void* handle) {
    auto it = gHandles.find(handle);
    return it == gHandles.end() ? nullptr : it->second.get();
}

void* enter(std::unique_ptr<SailfishAudioHandle> record) {
    void* handle = record.get();
    gHandles.emplace(handle, std::move(record));
    return handle;
}

// The clock never wraps: a position near the top of the range stays there.
uint64_t currentOffset(const SailfishAudioHandle& record) {
    if (!record.playing) return record.baseOffsetMs;
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                               record.startedAt).count();
    const uint64_t since = elapsed > 0 ? uint64_t(elapsed) : 0;
    const uint64_t room = std::numeric_limits<uint64_t>::max() - record.baseOffsetMs;
    return since > room ? std::numeric_limits<uint64_t>::max() : record.baseOffsetMs + since;
}

uint64_t stop(SailfishAudioHandle& record) {
    record.baseOffsetMs = currentOffset(record);
    record.playing = false;
    return record.baseOffsetMs;
}

}  // namespace

void* OpenMP3File(const char* path) {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    if (!path) return nullptr;
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return nullptr;
    std::fclose(file);
    auto record = std::make_unique<SailfishAudioHandle>();
    record->path = path;
    return enter(std::move(record));
}

void* OpenPCMTrack(const int16_t* samples, uint64_t sampleCount, uint32_t sampleRate, uint16_t channels) {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    if (!samples || sampleCount == 0 || sampleRate == 0 || channels == 0 || sampleCount % channels != 0) return nullptr;
    auto record = std::make_unique<SailfishAudioHandle>();
    record->sampleRate = sampleRate;
    record->channels = channels;
    record->sampleCount = sampleCount;
    return enter(std::move(record));
}

bool Play(void* handle, uint64_t offsetMs, bool flag) {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    SailfishAudioHandle* record = find(handle);
    if (!record) return false;
    record->baseOffsetMs = offsetMs;
    record->playFlag = flag;
    record->playing = true;
    record->startedAt = std::chrono::steady_clock::now();
    return true;
}

uint64_t GetCurrentOffset(void* handle) {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    const SailfishAudioHandle* record = find(handle);
    return record ? currentOffset(*record) : 0;
}

uint64_t Stop(void* handle) {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    SailfishAudioHandle* record = find(handle);
    return record ? stop(*record) : 0;
}

void StopAll() {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    for (auto& entry : gHandles) stop(*entry.second);
}

void Close(void* handle) {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    gHandles.erase(handle);
}

size_t OpenHandleCount() {
    std::lock_guard<std::mutex> lock(gHandlesMutex);
    return gHandles.size();
}

}  // namespace orvane::audio
