// Plays one stream on one or several channels, the first of them in a window or into memory, the others into memory.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "ContactSheet.h"
#include "MediaSource.h"
#include "Options.h"
#include "Statistics.h"
#include "WindowView.h"
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
    static void OnDisplayed(void* context, const AfterDisplayRecord* record);
    static void OnOtherPicture(void*, const PseudoFrame*) {}

    bool Open(std::string& error);
    bool OpenWindow(std::string& error);
    bool MakeChannel(std::string& error);
    bool Deliver(void* channel, bool watched, std::string& error);
    void Play(const std::atomic<bool>& stop);
    void Feed(const EncodedPicture& picture);
    bool WaitUntilDue(int64_t timeMs, const std::atomic<bool>& stop);
    // Attends to the window. False when the play is to end.
    bool GoesOn(const std::atomic<bool>& stop);
    void Wait(double seconds);
    // By key, or when it is time for the one of the options.
    void TakeScreenshot(bool atEnd);
    void Drain(const std::atomic<bool>& stop);
    void PrintStatus(bool last);
    bool WriteStatistics(std::string& error) const;

    const Options& m_options;
    Statistics m_statistics;
    std::unique_ptr<MediaSource> m_source;
    std::unique_ptr<ContactSheet> m_sheet;    // on the render thread until the channels are gone
    std::unique_ptr<WindowView> m_view;       // null without a window
    std::atomic<uint64_t> m_pictureSize{
        0};    // width in the upper half: of the stream as the window's channel tells it
    void* m_instance = nullptr;
    std::vector<void*> m_channels;
    double m_startedAt = 0;    // moves on while paused
    double m_attendedAt = 0;
    bool m_screenshotTaken = false;    // the one of the options
    std::string m_screenshotError;
    WindowView::State m_state = WindowView::State::Playing;
    int64_t m_wallStart = 0;
    int64_t m_fedMs = 0;

    // Of the status line before.
    double m_statusAt = 0;
    double m_statusProcessor = 0;
    uint64_t m_statusShown = 0;
};
