// Plays one stream on one or several channels.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "ContactSheet.h"
#include "MediaSource.h"
#include "Options.h"
#include "Statistics.h"
#include "corvane/corvane.h"

class Player {
public:
    explicit Player(const Options& options) : m_options(options) {}
    ~Player();

    // Plays to the end, or until `stop` is set. False with the reason in `error`.
    bool Run(const std::atomic<bool>& stop, std::string& error);

    // Writes what the options ask for. False with the reason in `error`.
    bool Finish(std::string& error);

private:
    // The channel that is watched; the others play along.
    static void OnStreamInfo(void* context, uint32_t code, uint64_t a, uint64_t b);
    static void OnPicture(void* context, const PseudoFrame* frame);
    static void OnOtherPicture(void*, const PseudoFrame*) {}

    bool Open(std::string& error);
    bool MakeChannel(std::string& error);
    void Feed(const EncodedPicture& picture);
    bool WaitUntilDue(int64_t timeMs, const std::atomic<bool>& stop);
    void Drain(const std::atomic<bool>& stop);
    void PrintStatus(bool last);

    const Options& m_options;
    Statistics m_statistics;
    std::unique_ptr<MediaSource> m_source;
    std::unique_ptr<ContactSheet> m_sheet;    // on the render thread until the channels are gone
    void* m_instance = nullptr;
    std::vector<void*> m_channels;
    double m_startedAt = 0;
    int64_t m_wallStart = 0;
    int64_t m_fedMs = 0;

    // Of the status line before.
    double m_statusAt = 0;
    double m_statusProcessor = 0;
    uint64_t m_statusShown = 0;
};
