// The help screen on a real window (run under Xvfb): its page against a reference picture, and
// its wait, driven by scripted keyboard snapshots, that holds until F1 is let go and then Space
// is down, leaves Space newly pressed for the frame, and ends at once when the window closes.
#include "gl_fixture.h"

#include "fentra/views/game.h"
#include "fentra/views/views.h"

#include <SDL.h>

#include <cstring>
#include <tuple>

static ::testing::Environment *const gl_window = ::testing::AddGlobalTestEnvironment(new views_gl::window(640, 560));

struct keys { bool f1, space; };   // down after that pump
static std::vector<keys> script;
static unsigned pumps, close_at;

// The real pump, then the script's keys in place of the real keyboard. Past the end of the
// script Space is held and F1 released, so a wrong loop still ends.
static int scripted_pump()
{
    SDL_Event close = {.type = SDL_QUIT};
    if (pumps == close_at) SDL_PushEvent(&close);
    int quit = pump_events();
    keys k = pumps < script.size() ? script[pumps] : keys{false, true};
    pumps++;
    key_state[VK_F1] = k.f1 ? 0x80 : 0, key_state[VK_SPACE] = k.space ? 0x80 : 0;
    return quit;
}

// "Key list:" in white at (100, 90), the key list in cyan from y = 120 and "Press space to
// continue..." in blue at y = 500, in the default font; the added keys in green under it.
TEST(help_screen, the_page_matches_its_reference_picture)
{
    views_gl::clear_screen();
    draw_help_page();
    EXPECT_TRUE(matches_reference("help_page", read_back_buffer(640, 560), 640, 560));
}

TEST(help_screen, returns_on_space_only_after_f1_is_released_or_when_the_window_closes)
{
    const keys up = {false, false}, f1 = {true, false}, space = {false, true}, both = {true, true};
    // close_at: the pump that brings a close; pumps: how many until it returns.
    const struct { const char *name; std::vector<keys> steps; unsigned close_at, pumps; } cases[] = {
        {"F1 up, then Space", {up, up, space}, ~0u, 3},
        {"Space held with F1 does not count", {both, both, f1, up, space}, ~0u, 5},
        {"Space already down when F1 goes up", {f1, space}, ~0u, 2},
        {"F1 pressed again while waiting for Space", {up, f1, both, up, space}, ~0u, 3},
        {"closed while F1 is held", std::vector<keys>(100, f1), 0, 1},
        {"closed while waiting for Space", std::vector<keys>(100, up), 3, 4},
    };
    for (const auto &c : cases) {
        if (quit_requested) {   // the window was released: a fresh one
            quit_requested = 0;
            ASSERT_EQ(graphics_open(640, 560, "views test", nullptr), 1);
        }
        script = c.steps, pumps = 0, close_at = c.close_at;
        memset(key_state_previous, 0, sizeof key_state_previous), memset(key_state, 0, sizeof key_state);
        key_state[VK_F1] = 0x80;   // entered as the frame does: F1 just pressed
        help_pump = scripted_pump, help_screen(), help_pump = pump_events;
        // Closed: quit is asked for; else Space is newly pressed for the frame.
        EXPECT_EQ(std::make_tuple(pumps, quit_requested != 0, key_pressed(VK_SPACE) != 0),
                  std::make_tuple(c.pumps, c.close_at != ~0u, c.close_at == ~0u)) << c.name;
    }
}
