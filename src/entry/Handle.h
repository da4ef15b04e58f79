// From the handle that a client passes to the object: the one place that casts handles.
#pragma once

#include "base/HandleObject.h"

namespace corvane {

// The object of a handle as a `Class`; null where the handle is null or of another class. The handle of an object that
// was destroyed cannot be told from others.
template <typename Class>
Class* ObjectOf(void* handle) noexcept {
    return dynamic_cast<Class*>(static_cast<HandleObject*>(handle));
}

// A pointer to a plain object, which cannot be checked: a JPEG encoder or a bit packer, which lies in the client's
// memory, or a client's own filter. Null stays null.
template <typename Class>
Class* PlainObjectOf(void* pointer) noexcept {
    return static_cast<Class*>(pointer);
}

}    // namespace corvane
