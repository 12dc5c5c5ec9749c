// The controls and the heads-up logic without a display: magnet settings from held keys and
// touch drag, lattice switching, the toggles, the speed keys, the odd touch "Reset" region and
// the KORA lines. Key snapshots are written straight into key_state. (The pole letters are
// checked in their pixels in gl/app_render_test, the spark count in views_sparks_test.)
#include "Morvane/gfx_opengl.h"
#include "fentra/controls.h"
#include "fentra/views/hud.h"
#include "fentra/physics/lattice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <tuple>

// This frame's snapshot holds `now`, the previous one `before`.
static void snapshot(std::initializer_list<int> now, std::initializer_list<int> before = {})
{
    memset(key_state, 0, sizeof key_state);
    memset(key_state_previous, 0, sizeof key_state_previous);
    for (int k : now) key_state[k] = 0x80;
    for (int k : before) key_state_previous[k] = 0x80;
}

struct Controls : testing::Test {
    void SetUp() override
    {
        allocate_particles();
        reset_simulation_state();
        magnets = magnet_settings{};
        snapshot({});
    }
};

// ---- Magnets from held keys ---------------------------------------------------------------

TEST_F(Controls, HeldKeysGiveMagnetSettingsAndPairsCancel)
{
    struct magnet_case {
        const char *name;
        std::initializer_list<int> keys;
        double steering, quad, sextupole, octupole, solenoid;
    } cases[] = {
        {"2 and 3 cancel", {'2', '3'}, 0, 0, 0, 0, 0},
        {"4 and 5 cancel", {'4', '5'}, 0, 0, 0, 0, 0},
        {"4 and Left add", {'4', VK_LEFT}, 0, 4, 0, 0, 0},
        {"4 and Right cancel", {'4', VK_RIGHT}, 0, 0, 0, 0, 0},
        {"5 and Right add", {'5', VK_RIGHT}, 0, -4, 0, 0, 0},
        {"O and 0 cancel", {'O', '0'}, 0, 0, 0, 0, 0},
        {"1 does nothing", {'1'}, 0, 0, 0, 0, 0},
        {"everything at once", {'2', '4', VK_LEFT, '6', '8', 'O'}, 1.0 / 30, 4, 30, 900, 1},
        {"the other half at once", {'3', '5', '7', '9', '0'}, -1.0 / 30, -2, -30, -900, -1},
    };
    for (const magnet_case &c : cases) {
        snapshot(c.keys);
        read_magnet_keys();
        EXPECT_EQ(std::make_tuple(magnets.steering, magnets.quad_strength, magnets.sextupole, magnets.octupole,
                                  magnets.solenoid),
                  std::make_tuple(c.steering, c.quad, c.sextupole, c.octupole, c.solenoid))
            << c.name;
    }
}

TEST(TouchDrag, HorizontalDragInStepsOfAFifthOfAPercent)
{
    struct drag_case {
        const char *name;
        int touch_mode;
        unsigned buttons;
        int previous_buttons, previous_x, x, W;
        int expected;
    } cases[] = {
        {"no touch screen", 0, 1, 1, 500, 400, 1920, 0},
        {"not touching before", 1, 1, 0, 500, 400, 1920, 0},
        {"left by 100 at W/250 = 7 pixels a unit", 1, 1, 1, 500, 400, 1920, 14},
        {"right by 100", 2, 1, 1, 400, 500, 1920, -14},
        {"exactly a unit", 1, 1, 1, 500, 493, 1920, 1},
        {"narrow screen: a pixel a unit", 1, 1, 1, 50, 40, 200, 10},
    };
    for (const drag_case &c : cases)
        EXPECT_EQ(touch_drag_quadrupole(c.touch_mode, c.buttons, c.previous_buttons,
                                        c.previous_x, c.x, c.W),
                  c.expected)
            << c.name;
}

// ---- Lattice keys -------------------------------------------------------------------------

TEST_F(Controls, LatticeKeysSwitchKoraAndFodo)
{
    struct lattice_case {
        const char *name;
        bool kora, fodo;
        std::initializer_list<int> keys;
        bool kora_next, fodo_after, fodo_beam;
        int count_after;
        double speed_after;
    } cases[] = {
        {"no key", false, false, {}, false, false, false, 1234, 8},
        {"no key, KORA stays", true, false, {}, true, false, false, 1234, 8},
        {"I switches KORA on, beam kept", false, false, {'I'}, true, false, false, 1234, 8},
        {"I switches KORA on and the FODO cell off", false, true, {'I'}, true, false, false, 1234, 8},
        {"I switches KORA off and the speed to 1", true, false, {'I'}, false, false, false, 1234, 1},
        {"I and F with KORA on: off, then F toggles", true, false, {'I', 'F'}, false, true, true, 10000, 1},
        {"I and F with KORA off: FODO on", false, false, {'I', 'F'}, false, true, true, 10000, 8},
        {"I and F with FODO on: stays on, new beam", false, true, {'I', 'F'}, false, true, true, 10000, 8},
        {"F switches FODO on with its beam", false, false, {'F'}, false, true, true, 10000, 8},
        {"F switches FODO off and empties the beam", false, true, {'F'}, false, false, false, 0, 8},
        {"F in KORA: FODO on, KORA off", true, false, {'F'}, false, true, true, 10000, 8},
    };
    for (const lattice_case &c : cases) {
        reset_simulation_state();
        sim.kora_lattice = c.kora;
        sim.fodo_cell = c.fodo;
        sim.particle_count = 1234;
        sim.simulation_speed = 8;
        sim.ring_position = 0.7;   // FODO drift: no quadrupole
        sim.peak_luminosity = 5e30;
        magnets.quad_strength = 0;
        snapshot(c.keys);
        lattice_outcome o = lattice_keys();
        EXPECT_EQ(std::make_tuple(o.kora_next, sim.fodo_cell, o.fodo_beam, sim.particle_count, sim.simulation_speed),
                  std::make_tuple(c.kora_next, c.fodo_after, c.fodo_beam, c.count_after, c.speed_after))
            << c.name;
        // The FODO beam starts at ring position 0, leaves KORA and keeps the peak.
        EXPECT_EQ(sim.ring_position, c.fodo_beam ? 0 : 0.7) << c.name;
        EXPECT_FALSE(c.fodo_beam && sim.kora_lattice) << c.name;
        EXPECT_EQ(sim.peak_luminosity, 5e30) << c.name;
    }
}

// ---- Toggles, speed, quit ------------------------------------------------------------------

TEST_F(Controls, TogglesActOncePerPress)
{
    struct toggle_case {
        const char *name;
        std::initializer_list<int> now, before;
        bool graphs, scraper, space_charge, highlight;
        int luminous;
    } cases[] = {
        {"A", {'A'}, {}, true, false, false, false, 0},
        {"A held from the last frame", {'A'}, {'A'}, false, false, false, false, 0},
        {"L", {'L'}, {}, false, false, false, false, 1},
        {"S", {'S'}, {}, false, true, false, false, 0},
        {"Ctrl+S leaves the scraper", {VK_CONTROL, 'S'}, {}, false, false, false, false, 0},
        {"S pressed with Ctrl held before", {VK_CONTROL, 'S'}, {VK_CONTROL}, false, false, false, false, 0},
        {"C", {'C'}, {}, false, false, true, false, 0},
        {"H", {'H'}, {}, false, false, false, true, 0},
        {"all five", {'A', 'L', 'S', 'C', 'H'}, {}, true, true, true, true, 1},
    };
    for (const toggle_case &c : cases) {
        reset_simulation_state();
        sim.particle_count = 100;
        snapshot(c.now, c.before);
        toggle_keys();
        EXPECT_EQ(std::make_tuple(sim.show_graphs, sim.scraper_on, sim.space_charge, sim.highlight, sim.luminous),
                  std::make_tuple(c.graphs, c.scraper, c.space_charge, c.highlight, c.luminous))
            << c.name;
    }
    // A second press switches back.
    reset_simulation_state();
    snapshot({'L', 'A'});
    toggle_keys();
    snapshot({}, {'L', 'A'});
    toggle_keys();
    snapshot({'L', 'A'});
    toggle_keys();
    EXPECT_EQ(sim.luminous, 0);
    EXPECT_FALSE(sim.show_graphs);
}

// ---- Heads-up logic -------------------------------------------------------------------------

// The touch "Reset" region lies at the left edge, rows 50 - h to 50 + 2h - 1, although the word
// is drawn mid-screen.
TEST(TouchReset, TheHitRegionIsAtTheLeftEdge)
{
    const struct { int x, y; bool hit; } cases[] = {
        {55, 40, true}, {56, 40, false}, {0, 34, true}, {0, 33, false}, {0, 81, true}, {0, 82, false}, {960, 55, false}};
    for (const auto &c : cases) EXPECT_EQ(touch_reset_hit(c.x, c.y, 40, 16), c.hit) << c.x << ", " << c.y;
}
