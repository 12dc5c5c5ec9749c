// The help screen's wait on a real window (run under Xvfb): driven by scripted keyboard
// snapshots it holds until F1 is let go and then Space is down, leaves Space newly pressed for
// the frame's later key tests, and returns at once when the window is closed.
#include "gl_fixture.h"

#include "fentra/views/game.h"
#include "fentra/views/views.h"

#include <SDL.h>

#include <cstring>
#include <vector>

using namespace views_gl;

namespace {

::testing::Environment *const gl_window = ::testing::AddGlobalTestEnvironment(new window(640, 540));

// One scripted snapshot: which of F1 and Space are down after that pump.
struct keys {
    bool f1, space;
};
std::vector<keys> script;
unsigned pumps;

// The real pump (events, snapshot), then the script's keys in place of the real keyboard.
// Past the end of the script Space is held and F1 released, so a wrong loop still ends.
int scripted_pump()
{
    int quit = pump_events();
    keys k = pumps < script.size() ? script[pumps] : keys{false, true};
    pumps++;
    key_state[VK_F1] = k.f1 ? 0x80 : 0;
    key_state[VK_SPACE] = k.space ? 0x80 : 0;
    return quit;
}

// Enters the help screen as the frame does: F1 just pressed.
void open_help(const std::vector<keys> &steps)
{
    script = steps;
    pumps = 0;
    memset(key_state_previous, 0, sizeof key_state_previous);
    memset(key_state, 0, sizeof key_state);
    key_state[VK_F1] = 0x80;
    help_pump = scripted_pump;
    help_screen();
    help_pump = pump_events;
}

// A close test run after another in the same process finds the window released: open a
// fresh one so that it starts from a live window as well.
void reopen_if_closed()
{
    if (!quit_requested) return;
    quit_requested = 0;
    ASSERT_EQ(graphics_open(640, 540, "views test", nullptr), 1);
}

} // namespace

// The page: "Key list:" in white at (100, 90), the key list in cyan from y = 120 and "Press
// space to continue..." in blue at y = 500, in the default font.
TEST(help_screen, the_page_matches_its_reference_picture)
{
    selectdefaultfont();
    clear_screen();
    draw_help_page();
    EXPECT_TRUE(matches_reference("help_page", read_back_buffer(640, 540), 640, 540));
}

TEST(help_screen, returns_on_space_only_after_f1_is_released)
{
    struct case_ {
        const char *name;
        std::vector<keys> steps;
        unsigned pumps;   // pumps until it returns
    };
    const case_ cases[] = {
        {"F1 up, then Space", {{false, false}, {false, false}, {false, true}}, 3},
        {"Space held with F1 does not count",
         {{true, true}, {true, true}, {true, false}, {false, false}, {false, true}}, 5},
        {"Space already down when F1 goes up", {{true, false}, {false, true}}, 2},
        {"F1 pressed again while waiting for Space",
         {{false, false}, {true, false}, {true, true}, {false, false}, {false, true}}, 3},
    };
    for (const case_ &c : cases) {
        open_help(c.steps);
        EXPECT_EQ(pumps, c.pumps) << c.name;
        EXPECT_TRUE(key_pressed(VK_SPACE)) << c.name << ": the frame's beam keys see Space newly pressed";
    }
}

TEST(help_screen, closing_the_window_ends_the_wait_at_once)
{
    // F1 stays down for ever in the script: only the close can end the first wait.
    reopen_if_closed();
    std::vector<keys> held(1000, keys{true, false});
    SDL_Event close = {};
    close.type = SDL_QUIT;
    ASSERT_EQ(SDL_PushEvent(&close), 1);
    open_help(held);
    EXPECT_EQ(pumps, 1u);
    EXPECT_EQ(quit_requested, 1);
    EXPECT_TRUE(key_held(VK_F1)) << "it returned with F1 still down";
}

TEST(help_screen, closing_the_window_while_waiting_for_space_ends_it_too)
{
    // F1 is released at once; the close arrives on the third pump of the Space wait.
    struct closing_pump {
        static int pump()
        {
            if (pumps == 3) {
                SDL_Event close = {};
                close.type = SDL_WINDOWEVENT;
                close.window.event = SDL_WINDOWEVENT_CLOSE;
                close.window.windowID = SDL_GetWindowID(SDL_GL_GetCurrentWindow());
                SDL_PushEvent(&close);
            }
            return scripted_pump();
        }
    };
    reopen_if_closed();
    script.assign(1000, keys{false, false});
    pumps = 0;
    memset(key_state, 0, sizeof key_state);
    key_state[VK_F1] = 0x80;
    help_pump = closing_pump::pump;
    help_screen();
    help_pump = pump_events;
    EXPECT_EQ(pumps, 4u);
    EXPECT_EQ(quit_requested, 1);
    EXPECT_FALSE(key_held(VK_SPACE));
}
