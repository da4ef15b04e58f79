#include "Keyboard.h"

#include <xcb/xcb.h>

#include "Reply.h"

void Keyboard::Read(xcb_connection_t* connection) {
    const xcb_setup_t* const setup = xcb_get_setup(connection);
    m_first = setup->min_keycode;
    const auto count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    const Reply<xcb_get_keyboard_mapping_reply_t> reply(xcb_get_keyboard_mapping_reply(
        connection, xcb_get_keyboard_mapping(connection, setup->min_keycode, count), nullptr));
    if (!reply)
        return;
    const xcb_keysym_t* const first = xcb_get_keyboard_mapping_keysyms(reply.get());
    m_symbols.assign(first, first + xcb_get_keyboard_mapping_keysyms_length(reply.get()));
    m_perCode = reply->keysyms_per_keycode;
}

uint32_t Keyboard::SymbolOf(uint8_t code) const {
    const size_t row = (size_t{code} - m_first) * m_perCode;
    for (size_t i = row; code >= m_first && i < row + m_perCode && i < m_symbols.size(); ++i)
        if (m_symbols[i] != 0 && (m_symbols[i] < 0x100 || m_symbols[i] >= 0xff00))
            return m_symbols[i];
    return 0;
}
