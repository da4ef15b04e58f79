// Records the frames of one stream into an AVI file, as they are or compressed anew.
#pragma once

#include <memory>
#include <string>

#include "Options.h"
#include "corvane/corvane.h"

class Recorder {
public:
    // Starts the file of the options. Null with the reason in `error`, or without one where they name no file.
    static std::unique_ptr<Recorder> Open(void* instance, const Options& options, std::string& error);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // After a frame that could not be written the rest is left out.
    void Input(const MediaFrameHeader& frame);
    // Ends the file. False with the reason in `error`.
    bool Close(std::string& error);

private:
    Recorder(void* instance, const std::string& name) : m_instance(instance), m_name(name) {}

    void* const m_instance;
    const std::string m_name;
    void* m_channel = nullptr;
    bool m_failed = false;
};
