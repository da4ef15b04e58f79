// The base of all objects that a client holds a handle of and that can be told apart: instances and channels. It holds
// no data. A handle is the address of this base, so a class derives from it once and not virtually.
//
// entry/Handle.h has the way back from a handle.
#pragma once

namespace corvane {

class HandleObject {
public:
    virtual ~HandleObject() = default;

    void* Handle() { return this; }

protected:
    HandleObject() = default;
    HandleObject(const HandleObject&) = default;
    HandleObject& operator=(const HandleObject&) = default;
};

}    // namespace corvane
