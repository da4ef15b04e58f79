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

    // Loads `name` in place of what was open: a path with a slash, else a file where the loader looks, the folder of
    // this library included. All its symbols must be found at once, and it lends none to others. False: there is no
    // such file, or it cannot be loaded; then nothing is open.
    [[nodiscard]] bool Open(const char* name) noexcept;

    // The function or object of that name, null where there is none or nothing is open. Lasts until the library is
    // closed. `Symbol` is its type, which nobody checks.
    template <typename Symbol>
    Symbol* Find(const char* name) const noexcept {
        return reinterpret_cast<Symbol*>(FindAddress(name));
    }

    // Unloads it, unless somebody else has it open too.
    void Close() noexcept;
    // Leaves it loaded for good: for a library whose objects and threads may outlive us. Symbols stay valid.
    void Keep() noexcept { m_handle = nullptr; }

private:
    void* FindAddress(const char* name) const noexcept;

    void* m_handle = nullptr;    // null: nothing is open
};

}    // namespace corvane
