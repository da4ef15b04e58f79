// A shared object that is loaded while the process runs: side libraries and plug-ins.
#pragma once

#include <utility>

namespace corvane {

// One thread at a time.
class Library {
public:
    Library() = default;
    ~Library() { Close(); }
    Library(Library&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    Library& operator=(Library&& other) noexcept {
        std::swap(m_handle, other.m_handle);
        return *this;
    }

    // Closes the library that was open and loads `name`: a path with a slash, else a file in a folder of the loader,
    // that of this library included. All symbols are resolved at once, and none is visible to other libraries. False:
    // there is no such file, or it cannot be loaded; then nothing is open.
    [[nodiscard]] bool Open(const char* name) noexcept;
    // The same for a library that another part of the process has loaded; false where none has.
    [[nodiscard]] bool OpenLoaded(const char* name) noexcept;

    // The function or object of that name; null where there is none or nothing is open. Valid until the library is
    // closed. `Symbol` is its type, which is not checked.
    template <typename Symbol>
    Symbol* Find(const char* name) const noexcept {
        return reinterpret_cast<Symbol*>(FindAddress(name));
    }

    // Whether both have the same library open.
    bool operator==(const Library& other) const noexcept { return m_handle == other.m_handle; }

    // Unloads the library, unless another part of the process has it open too.
    void Close() noexcept;
    // Leaves the library loaded for good, since its objects and threads may outlive this object. Symbols stay valid.
    void Keep() noexcept { m_handle = nullptr; }

private:
    void* FindAddress(const char* name) const noexcept;

    void* m_handle = nullptr;    // null: nothing is open
};

}    // namespace corvane
