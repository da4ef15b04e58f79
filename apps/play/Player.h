// Plays one stream on one or several channels: the first of them in the wall, the others into memory.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "ChannelFeed.h"
#include "ContactSheet.h"
#include "DecoderFeed.h"
#include "MediaSource.h"
#include "Options.h"
#include "RawFiles.h"
#include "Recorder.h"
#include "Reel.h"
#include "StatusLine.h"
#include "Wall.h"

class Player {
public:
    explicit Player(const Options& options) : m_options(options), m_status(options.quiet) {}
    ~Player();

    // Plays to the end, or until `stop` is set. False with the reason in `error`.
    bool Run(const std::atomic<bool>& stop, std::string& error);

    // Writes the files that the options ask for. False with the reason in `error`.
    bool Finish(std::string& error);

private:
    bool Open(std::string& error);
    bool OpenFeeds(std::string& error);
    void Play(const std::atomic<bool>& stop);
    // In place of Play, for a channel that does not present.
    void DecodeAll(const std::atomic<bool>& stop);
    // Handles the window's events and feeds the frames that are due. False when the play is to end.
    bool GoesOn(const std::atomic<bool>& stop);
    void Wait(double seconds);
    void Drain(const std::atomic<bool>& stop);
    void SaveStills();
    bool SaveStill(void* channel, std::string& error);
    // By key, or at the time that the options give.
    void TakeScreenshot(bool atEnd);
    void PrintStatus(bool last);
    std::vector<Figures> AllFigures() const;
    bool WriteStatistics(std::string& error) const;

    const Options& m_options;
    StatusLine m_status;
    std::unique_ptr<MediaSource> m_source;
    std::unique_ptr<Reel> m_reel;
    std::unique_ptr<ContactSheet> m_sheet;
    std::unique_ptr<RawFiles> m_raw;    // of the first channel; null: none are written
    std::unique_ptr<Wall> m_wall;       // null without a window
    double m_pixelAspect = 1;           // width of a pixel over its height
    void* m_instance = nullptr;
    std::unique_ptr<Recorder> m_recorder;      // of the first channel; null: nothing is recorded
    std::unique_ptr<DecoderFeed> m_decoder;    // with --decode-only; m_feeds is empty then
    std::vector<std::unique_ptr<ChannelFeed>> m_feeds;
    double m_startedAt = 0;    // moves on while paused
    double m_attendedAt = 0;
    Wall::State m_state = Wall::State::Playing;
    bool m_screenshotTaken = false;    // the one of the options
    double m_nextStill = 0;            // seconds of the stream
    std::string m_mistake;             // of a file that the options ask for while playing
};
