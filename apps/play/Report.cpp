#include "Report.h"

#include <sys/resource.h>

#include <array>
#include <charconv>
#include <utility>

namespace {

using Fields = std::vector<std::pair<const char*, std::string>>;

// A number in the form of JSON, in every locale.
std::string Text(double value, int digitsBehind = 3) {
    std::array<char, 64> digits;
    const auto [end, error] =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, digitsBehind);
    return std::string(digits.data(), error == std::errc{} ? end : digits.data());
}

std::string Text(uint64_t value) {
    return std::to_string(value);
}

std::string Text(const std::string& value) {
    std::string out = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
    return out + '"';
}

std::string Object(const Fields& fields, const char* open, const char* between, const char* close) {
    std::string out = open;
    for (const auto& [name, value] : fields) {
        out += &name == &fields.front().first ? "" : between;
        out += std::string("\"") + name + "\": " + value;
    }
    return out + close;
}

double NotPresentedShare(const ChannelStatistics& counters) {
    const uint64_t committed = CommittedOf(counters);
    return committed == 0 ? 0.0 : static_cast<double>(NotShownOf(counters)) / static_cast<double>(committed);
}

std::string Row(const Figures& channel) {
    const ChannelStatistics& counters = channel.counters;
    return Object({{"fed", Text(channel.fed)},
                   {"committed", Text(CommittedOf(counters))},
                   {"presented", Text(ShownOf(counters))},
                   {"not_presented", Text(NotShownOf(counters))},
                   {"pictures_per_second", Text(channel.pictures.perSecond)},
                   {"longest_gap_ms", Text(channel.pictures.longestGapMs)},
                   {"age_ms_mean", Text(counters.ageMean)},
                   {"age_ms_p95", Text(counters.age95)},
                   {"last_cause", Text(std::string(TextOfCause(counters.lastCause)))}},
                  "    {", ", ", "}");
}

}    // namespace

std::string MakeReport(const ReportFacts& facts, const std::vector<Figures>& channels) {
    const Figures& first = channels.front();
    const ChannelStatistics& counters = first.counters;
    const ChannelStatistics all = SumOf(channels);
    std::string rows;
    for (const Figures& channel : channels)
        rows += (rows.empty() ? "\n" : ",\n") + Row(channel);
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    Fields fields = {
        {"input", Text(facts.input)},
        {"codec", Text(facts.codec)},
        {"channels", Text(uint64_t{channels.size()})},
        {"width", Text(uint64_t{first.pictures.width})},
        {"height", Text(uint64_t{first.pictures.height})},
        {"window_width", Text(uint64_t{facts.windowWidth})},
        {"window_height", Text(uint64_t{facts.windowHeight})},
        {"decoder_kind", Text(uint64_t{counters.decoderKind})},
        {"decoder_threads", Text(uint64_t{counters.decoderThreads})},
        {"fed", Text(first.fed)},
        {"refused", Text(first.fed - counters.framesTaken)},
        {"shown", Text(ShownOf(counters))},
        {"lost", Text(LostOf(counters))},
        {"thinned", Text(counters.framesThinned)},
        {"waiting_at_end", Text(WaitingOf(counters))},
        {"waiting_bytes_at_end", Text(counters.queueBytes)},
        {"skipped_late", Text(counters.framesSkippedLate)},
        {"without_picture", Text(counters.unitsWithoutPicture)},
        {"failed", Text(counters.unitsFailed)},
        {"last_cause", Text(std::string(TextOfCause(counters.lastCause)))},
        {"pictures_per_second", Text(first.pictures.perSecond)},
        {"longest_gap_ms", Text(first.pictures.longestGapMs)},
        {"age_ms_last", Text(counters.ageLast)},
        {"age_ms_mean", Text(counters.ageMean)},
        {"age_ms_p95", Text(counters.age95)},
        {"committed", Text(CommittedOf(all))},
        {"presented", Text(ShownOf(all))},
        {"not_presented", Text(NotShownOf(all))},
        {"not_presented_share", Text(NotPresentedShare(all), 6)},
        {"smoothed", Text(all.picturesSmoothed)},
        {"refused_smoothing", Text(all.picturesRefusedSmoothing)},
        {"sound_taken", Text(all.soundFrames)},
        {"sound_heard", Text(all.soundHeard)},
        {"sound_lost_ring", Text(all.soundLostRing)},
        {"sound_lost_decoder", Text(all.soundLostDecoder)},
        {"sound_not_played", Text(all.soundNotPlayed)},
        {"sound_not_decoded", Text(facts.silentCodec)},
        {"processor_seconds", Text(ProcessorSeconds())},
        {"resident_mb_peak", Text(static_cast<double>(usage.ru_maxrss) / 1024)},
    };
    if (channels.size() > 1)
        fields.emplace_back("each", "[" + rows + "\n  ]");
    return Object(fields, "{\n  ", ",\n  ", "\n}\n");
}
