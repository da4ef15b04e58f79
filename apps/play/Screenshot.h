// Saves what a channel's window shows.
#pragma once

#include <string>

// Writes a PNG file. False with the reason in `error`. Waits for the X server.
bool WriteScreenshot(void* channel, const std::string& path, std::string& error);

// corvane-NNN.png with the lowest number that no file in the working directory has.
std::string FreeScreenshotName();
