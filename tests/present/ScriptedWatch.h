// The watch of a window that is as a test says.
#pragma once

#include <optional>

#include "platform/x11/WindowWatch.h"

namespace corvane::test {

struct ScriptedWatch final : WindowWatch {
    explicit ScriptedWatch(std::optional<Rect> place) : outer(place) {}
    uintptr_t Window() const override { return 1; }
    Life GetLife() const override { return life; }
    bool Viewable() const override { return viewable; }
    Size ClientSize() const override {
        return {static_cast<uint32_t>(outer->Width()), static_cast<uint32_t>(outer->Height())};
    }
    std::optional<Rect> ScreenRect() const override { return outer; }
    uint32_t MonitorIndex() const override { return 0; }
    std::optional<Beam> GetBeam() const override { return beam; }
    bool ServerLost() const override { return serverLost; }
    void AddListener(Listener*) override {}
    void RemoveListener(Listener*) override {}

    std::optional<Rect> outer;    // nothing: it is gone
    std::optional<Beam> beam;
    Life life = Life::Alive;
    bool viewable = true, serverLost = false;
};

}    // namespace corvane::test
