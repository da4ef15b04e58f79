// The symbols of the keys of the X server's keyboard. Used on the thread of its connection.
#pragma once

#include <cstdint>
#include <vector>

struct xcb_connection_t;

class Keyboard {
public:
    // Asks the server; to be called again when the server reports a change of the mapping.
    void Read(xcb_connection_t* connection);
    // The first symbol on the key that is of Latin 1 or a function key, so that keys work under other scripts too. 0:
    // none.
    uint32_t SymbolOf(uint8_t code) const;

private:
    std::vector<uint32_t> m_symbols;    // m_perCode for each code from m_first on
    uint32_t m_perCode = 0;
    uint32_t m_first = 0;
};
