// A tray for programs to put their icons in. It tells on its standard output what it sees, a line each, with
// the time in nanoseconds: "dock" when an icon comes, "map" when a window of a size is shown.

#include <xcb/xcb.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr int iconSize = 22;
constexpr int leastWindow = 50; // pixels; what is smaller is no window for the user

struct Connection
{
    Connection()
        : c(xcb_connect(nullptr, nullptr))
    {
    }
    ~Connection()
    {
        xcb_disconnect(c);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    xcb_connection_t* c;
};

xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    const auto cookie = xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(c, cookie, nullptr);
    const xcb_atom_t result = reply == nullptr ? xcb_atom_t(XCB_ATOM_NONE) : reply->atom;
    std::free(reply);
    return result;
}

void tell(const char* what)
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    std::printf("%s %lld\n", what,
                static_cast<long long>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()));
    std::fflush(stdout);
}

bool isLarge(xcb_connection_t* c, xcb_window_t window)
{
    xcb_get_geometry_reply_t* reply = xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr);
    const bool large = reply != nullptr && reply->width >= leastWindow && reply->height >= leastWindow;
    std::free(reply);
    return large;
}

} // namespace

int main()
{
    const Connection connection;
    xcb_connection_t* const c = connection.c;
    if (xcb_connection_has_error(c) != 0)
        return 1;
    const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_atom_t selection = atom(c, "_NET_SYSTEM_TRAY_S0");
    const xcb_atom_t opcode = atom(c, "_NET_SYSTEM_TRAY_OPCODE");
    const xcb_atom_t manager = atom(c, "MANAGER");

    const uint32_t rootEvents = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &rootEvents);
    const xcb_window_t tray = xcb_generate_id(c);
    xcb_create_window(c, XCB_COPY_FROM_PARENT, tray, screen->root, 0, 0, iconSize * 10, iconSize, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    xcb_map_window(c, tray);
    xcb_set_selection_owner(c, tray, selection, XCB_CURRENT_TIME);

    xcb_client_message_event_t announcement = {};
    announcement.response_type = XCB_CLIENT_MESSAGE;
    announcement.format = 32;
    announcement.window = screen->root;
    announcement.type = manager;
    announcement.data.data32[1] = selection;
    announcement.data.data32[2] = tray;
    xcb_send_event(c, 0, screen->root, XCB_EVENT_MASK_STRUCTURE_NOTIFY, reinterpret_cast<const char*>(&announcement));
    xcb_flush(c);
    tell("ready");

    while (xcb_generic_event_t* event = xcb_wait_for_event(c)) {
        const int type = event->response_type & 0x7f;
        if (type == XCB_CLIENT_MESSAGE) {
            const auto* message = reinterpret_cast<const xcb_client_message_event_t*>(event);
            if (message->type == opcode && message->data.data32[1] == 0) {
                tell("dock");
                const xcb_window_t icon = message->data.data32[2];
                const uint32_t size[] = {iconSize, iconSize};
                xcb_reparent_window(c, icon, tray, 0, 0);
                xcb_configure_window(c, icon, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
                xcb_map_window(c, icon);
                xcb_flush(c);
            }
        } else if (type == XCB_MAP_NOTIFY) {
            const xcb_window_t window = reinterpret_cast<const xcb_map_notify_event_t*>(event)->window;
            if (window != tray && isLarge(c, window))
                tell("map");
        }
        std::free(event);
    }
    return 0;
}
