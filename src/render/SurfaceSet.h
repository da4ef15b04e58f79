// The surfaces that a picture is composed on: the composite, and the text that is laid over it. Only on the render
// thread.
#pragma once

#include <memory>

#include "present/PresentSettings.h"
#include "render/MonitorView.h"

namespace corvane {

class SurfaceSet {
public:
    // The room for an overview in a window of its own, beside the picture of a window of `size`: to the right, or below
    // an upright window. Without such an overview it is the window's own rectangle.
    static Rect SpareRect(const PresentSettings& settings, WindowWatch::Size size);

    // Null where the device has no such surfaces. May raise std::bad_alloc.
    static std::unique_ptr<SurfaceSet> Make(std::shared_ptr<MonitorView> view, WindowWatch::Size size,
                                            const Rect& spare);

    // Changes the size; text is lost. False where the composite cannot take the size; nothing is changed then.
    bool Resize(WindowWatch::Size size, const Rect& spare);

    // Whether the set fits a window of that size. Of the spare rectangle only the far corner counts.
    bool Fits(WindowWatch::Size size, const Rect& spare) const {
        return m_size == size && m_spare.right == spare.right && m_spare.bottom == spare.bottom;
    }
    WindowWatch::Size Size() const { return m_size; }
    const Rect& Spare() const { return m_spare; }
    BlitComposite& Composite() const { return *m_composite; }

    // Text surfaces exist while a client draws text. False where the device has none.
    bool EnsureText();
    void FreeText();
    BlitSurface* TextSystem() const { return m_textSystem.get(); }    // null: there is none
    BlitSurface* Text() const { return m_text.get(); }

private:
    SurfaceSet(std::shared_ptr<MonitorView> view, WindowWatch::Size size, const Rect& spare)
        : m_view(std::move(view)), m_size(size), m_spare(spare) {}

    const std::shared_ptr<MonitorView> m_view;    // keeps the device, which outlives the surfaces
    WindowWatch::Size m_size;
    Rect m_spare;
    std::unique_ptr<BlitComposite> m_composite;
    std::unique_ptr<BlitSurface> m_textSystem;    // as large as the window: the client draws here
    std::unique_ptr<BlitSurface> m_text;          // one row higher: the last drawing, keyed by black
};

}    // namespace corvane
