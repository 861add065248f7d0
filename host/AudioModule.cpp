// The module Audio: argument rules over the tracks, the clock mixer and the tone search.
// Scripts hold a track as a pointer that is a handle into the table below, so that a freed
// or made-up pointer reads as no track (false, 0 or an empty result) instead of a stale one.
// Nothing frees tracks at exit: the table lives to the end of the process, and so do they.
#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_map>

#include "audio/FrequencySearch.h"
#include "audio/Track.h"
#include "host/Binding.h"
#include "host/HostModules.h"
#include "window/WindowFacade.h"

namespace orvane {

namespace {

using audio::Track;

constexpr uint64_t kTrackHandleTag = uint64_t(0x4155) << 48;

struct LiveTracks {
    std::unordered_map<uint64_t, Track*> tracks;
    uint64_t next = kTrackHandleTag + 1;
};

LiveTracks& liveTracks() {
    static LiveTracks* table = new LiveTracks;
    return *table;
}

Variable trackVariable(Track* track) {
    if (!track) return Variable();
    const uint64_t handle = liveTracks().next++;
    liveTracks().tracks.emplace(handle, track);
    return Variable(reinterpret_cast<void*>(uintptr_t(handle)));
}

Track* findTrack(void* pointer) {
    auto& table = liveTracks().tracks;
    auto it = table.find(uint64_t(reinterpret_cast<uintptr_t>(pointer)));
    return it == table.end() ? nullptr : it->second;
}

Track* trackArgument(const VariableArray& args, size_t index, const std::string& label, const std::string& name) {
    return findTrack(pointerValue(requireArg(args, index, label), label, name));
}

// Milliseconds for scripts: an integer while it fits, a float beyond.
Variable millisecondsVariable(uint64_t ms) {
    return ms <= 0x7FFFFFFFu ? Variable(int32_t(ms)) : Variable(float(ms));
}

Variable audioOffsetVariable(uint64_t frames, uint32_t sampleRate) {
    return millisecondsVariable(audio::framesToMilliseconds(frames, sampleRate));
}

Variable open(const VariableArray& args) {
    const std::string label = "Audio.open";
    const std::string path = stringValue(requireArg(args, 0, label), label, "path");
    if (!ot_has_mixer()) return returnValues({Variable(), Variable(false)});
    Track* track = audio::openFile(path.c_str());
    return returnValues({trackVariable(track), Variable(track != nullptr)});
}

// A positive offset is truncated to whole milliseconds; anything else starts at 0.
Variable play(const VariableArray& args) {
    const std::string label = "Audio.play";
    Track* track = trackArgument(args, 0, label, "track");
    const bool flag = isTruthy(requireArg(args, 1, label));
    uint64_t offset = 0;
    if (args.size() > 2 && !args[2].isNil()) {
        const double ms = numericValue(args[2], label, "offset");
        if (ms > 0) offset = ms >= 18446744073709551616.0 ? std::numeric_limits<uint64_t>::max() : uint64_t(ms);
    }
    return Variable(audio::play(track, offset, flag));
}

Variable pause(const VariableArray& args) {
    return millisecondsVariable(audio::pause(trackArgument(args, 0, "Audio.pause", "track")));
}

Variable freeTrack(const VariableArray& args) {
    void* pointer = pointerValue(requireArg(args, 0, "Audio.free"), "Audio.free", "track");
    auto& table = liveTracks().tracks;
    auto it = table.find(uint64_t(reinterpret_cast<uintptr_t>(pointer)));
    if (it == table.end()) return Variable();
    audio::close(it->second);
    table.erase(it);
    return Variable();
}

Variable clear(const VariableArray&) {
    audio::clear();
    return Variable();
}

Variable save(const VariableArray& args) {
    const std::string label = "Audio.save";
    const Track* track = trackArgument(args, 0, label, "track");
    const std::string path = stringValue(requireArg(args, 1, label), label, "path");
    return Variable(audio::save(track, path.c_str()));
}

Variable form(const VariableArray& args) {
    const std::string label = "Audio.form";
    const int32_t frequency = integerValue(requireArg(args, 0, label), label, "frequency");
    const int32_t length = integerValue(requireArg(args, 1, label), label, "lengthMS");
    const std::string shape = stringValue(requireArg(args, 2, label), label, "shape");
    const std::string side = stringValue(requireArg(args, 3, label), label, "side");
    if (frequency < 0) bindingError(label, "frequency must be 0 or greater");
    if (length < 0) bindingError(label, "lengthMS must be 0 or greater");
    if (shape != "square" && shape != "sine" && shape != "saw") bindingError(label, "shape must be square, sine, or saw");
    if (side != "left" && side != "right" && side != "both") bindingError(label, "side must be left, right, or both");
    return trackVariable(audio::form(frequency, length, shape.c_str(), side.c_str()));
}

Variable add(const VariableArray& args) {
    const std::string label = "Audio.add";
    Track* target = trackArgument(args, 0, label, "targetTrack");
    const Track* source = trackArgument(args, 1, label, "sourceTrack");
    const int32_t offset = integerValue(requireArg(args, 2, label), label, "offsetMS");
    if (offset < 0) bindingError(label, "offsetMS must be 0 or greater");
    return Variable(audio::add(target, source, offset));
}

Variable trim(const VariableArray& args) {
    const std::string label = "Audio.trim";
    Track* track = trackArgument(args, 0, label, "track");
    const int32_t start = integerValue(requireArg(args, 1, label), label, "startOffsetMS");
    const int32_t end = integerValue(requireArg(args, 2, label), label, "endOffsetMS");
    if (start < 0 || end < 0) bindingError(label, "offsets must be 0 or greater");
    if (end < start) bindingError(label, "endOffsetMS must be greater than or equal to startOffsetMS");
    return Variable(audio::trim(track, start, end));
}

double factorArgument(const VariableArray& args, const std::string& label) {
    const double factor = numericValue(requireArg(args, 1, label), label, "factor");
    if (!std::isfinite(factor) || factor <= 0) bindingError(label, "factor must be greater than 0");
    return factor;
}

Variable pitch(const VariableArray& args) {
    Track* track = trackArgument(args, 0, "Audio.pitch", "track");
    return Variable(audio::pitch(track, factorArgument(args, "Audio.pitch")));
}

Variable speed(const VariableArray& args) {
    Track* track = trackArgument(args, 0, "Audio.speed", "track");
    return Variable(audio::speed(track, factorArgument(args, "Audio.speed")));
}

// An optional argument that is absent or nil takes its default.
const Variable* optionalArg(const VariableArray& args, size_t index) {
    return index < args.size() && !args[index].isNil() ? &args[index] : nullptr;
}

// The checks run in argument order, after the track: a bad option on a track that is not
// there goes unnoticed, and the answer is an empty array.
Variable FindAudioFrequency(const VariableArray& args) {
    const std::string label = "Audio.findFrequency";
    const Track* track = trackArgument(args, 0, label, "track");
    const double frequency = numericValue(requireArg(args, 1, label), label, "frequency");
    if (!std::isfinite(frequency) || frequency <= 0) bindingError(label, "frequency must be greater than 0");
    audio::TrackAudioView view;
    if (!audio::inspect(track, &view)) return Variable::makeArray();
    if (frequency >= view.sampleRate / 2.0) bindingError(label, "frequency must be below the track Nyquist frequency");

    double tolerance = std::max(5.0, frequency * 0.02);
    if (const Variable* value = optionalArg(args, 2)) {
        tolerance = numericValue(*value, label, "toleranceHZ");
        if (!std::isfinite(tolerance) || tolerance < 0) bindingError(label, "toleranceHZ must be 0 or greater");
    }
    uint64_t minimumDuration = 0;
    if (const Variable* value = optionalArg(args, 3)) {
        const double ms = numericValue(*value, label, "minimumDurationMS");
        if (!std::isfinite(ms) || ms < 0) bindingError(label, "minimumDurationMS must be 0 or greater");
        if (ms >= 18446744073709551616.0) bindingError(label, "minimumDurationMS is too large");
        minimumDuration = uint64_t(ms);
    }
    double threshold = 0.55;
    if (const Variable* value = optionalArg(args, 4)) {
        threshold = numericValue(*value, label, "threshold");
        if (!std::isfinite(threshold) || threshold <= 0 || threshold > 2)
            bindingError(label, "threshold must be greater than 0 and no more than 2");
    }

    VariableArray result;
    for (const audio::FrequencyMatch& match :
         audio::findFrequencyMatches(view, frequency, tolerance, minimumDuration, threshold)) {
        VariableTable entry;
        entry.emplace("startMS", audioOffsetVariable(match.startFrame, view.sampleRate));
        entry.emplace("endMS", audioOffsetVariable(match.endFrame, view.sampleRate));
        result.emplace_back(std::move(entry));
    }
    return Variable(std::move(result));
}

}  // namespace

Variable makeAudioModule() {
    return makeModule("Audio", {{"open", open},
                                {"play", play},
                                {"pause", pause},
                                {"free", freeTrack},
                                {"clear", clear},
                                {"save", save},
                                {"form", form},
                                {"add", add},
                                {"trim", trim},
                                {"pitch", pitch},
                                {"speed", speed},
                                {"findFrequency", FindAudioFrequency}});
}

}  // namespace orvane
