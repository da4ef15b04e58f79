// Saves pictures of channels: the decoded picture in the format of a file, or the contents of windows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class Wall;

enum class StillFormat { Png, Jpeg, Bmp, Raw };    // raw: planes Y, U, V, packed

const char* ExtensionOf(StillFormat format);    // of a file's name, without the point

// The decoded picture that the channel shows, or the part of it that is zoomed into. False with the reason in `error`.
bool WriteStill(void* channel, StillFormat format, const std::string& path, std::string& error);

// The contents of the windows of all channels, at their places, as PNG. False with the reason in `error`. Waits for the
// X server.
bool WriteScreenshot(Wall& wall, const std::string& path, std::string& error);

// corvane-NNN.EXTENSION with the lowest number that no file in the working directory has.
std::string FreeName(const char* extension);
