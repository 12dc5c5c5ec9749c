// The frame driven from tests: keyboard snapshots go in through the pump's snapshot source,
// the clock is a counter of 1/256 s a reading, and the state that comes out is checked.
// Runs in a 640 x 480 window under Xvfb.
#include "gl_fixture.h"

#include "Morvane/bitmapfonts.h"
#include "Morvane/random.h"
#include "fentra/physics/beam.h"
#include "fentra/controls.h"
#include "fentra/physics/lattice.h"

#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

// ---- Keyboard and clock ---------------------------------------------------------------------

static unsigned char held_keys[256];
static std::deque<std::vector<int>> queued_snapshots;   // taken one a pump before held_keys

static void set_held(const std::vector<int> &keys)
{
    memset(held_keys, 0, sizeof held_keys);
    for (int k : keys) held_keys[k] = 0x80;
}

static void scripted_keyboard(unsigned char snapshot[256])
{
    if (!queued_snapshots.empty()) {
        set_held(queued_snapshots.front());
        queued_snapshots.pop_front();
    }
    memcpy(snapshot, held_keys, 256);
}

static double clock_reading;
static double counting_clock()
{
    clock_reading += 1.0 / 256;   // exact in binary, so sums of readings are exact too
    return clock_reading;
}

// The keys held from now on reach the program the way they do in a run: through a pump.
// Then one frame runs; returns what it returned (1 = quit).
static int frame(std::initializer_list<int> keys = {})
{
    set_held(keys);
    pump_events();
    return run_frame();
}

static void scripted_input()
{
    keyboard_snapshot_source = scripted_keyboard;
    time_now = counting_clock;
}
static testing::Environment *const environment = testing::AddGlobalTestEnvironment(
    new app_window_environment(640, 480, "app frame test", scripted_input));

struct Frame : testing::Test {
    void SetUp() override
    {
        reset_state_keeping_glow();
        random15_restart();
        queued_snapshots.clear();
        set_held({});
        pump_events();
        pump_events();   // nothing pressed, nothing held
    }
};

struct particle {
    double x, y, xp, yp, p;
    bool operator==(const particle &) const = default;
};

static std::vector<particle> beam_copy()
{
    std::vector<particle> b;
    for (int i = 0; i < sim.particle_count; i++) b.push_back({beam_x[i], beam_y[i], beam_xp[i], beam_yp[i], beam_momentum[i]});
    return b;
}

// ---- Beams ------------------------------------------------------------------------------------

TEST_F(Frame, FirstFrameMakesTheDefaultBeamAndTracksItAtOnce)
{
    ASSERT_EQ(sim.particle_count, 0);
    EXPECT_EQ(frame(), 0);
    EXPECT_EQ(last_frame.beam_kind, beam_game);
    EXPECT_EQ(last_frame.restarts, 0) << "a beam made at ring position 0 does not restart";
    ASSERT_EQ(sim.particle_count, 10000);
    std::vector<particle> tracked = beam_copy();
    EXPECT_GT(sim.ring_position, 0);
    EXPECT_EQ(sim.ring_position, sim.step_length) << "0 plus the next step";
    EXPECT_GT(last_frame.luminosity, 1e30);

    // The same beam made again, drifted over the initial step of 0.01 m by hand.
    random15_restart();
    sim.ring_position = 0;
    make_beam(beam_game);
    for (int i = 0; i < 10000; i++)
        ASSERT_EQ(tracked[i], (particle{beam_x[i] + beam_xp[i] * 0.01, beam_y[i] + beam_yp[i] * 0.01, beam_xp[i],
                                        beam_yp[i], beam_momentum[i]}))
            << "particle " << i;
}

TEST_F(Frame, BeamKeysMidRunRestartTheFrame)
{
    struct beam_key_case {
        const char *name;
        int key;
        int kind;
    } cases[] = {
        {"P", 'P', beam_parallel}, {"K", 'K', beam_kv},     {"W", 'W', beam_waterbag},
        {"G", 'G', beam_gaussian}, {"Space", VK_SPACE, beam_game},
    };
    frame();
    for (const beam_key_case &c : cases) {
        frame();
        frame();
        ASSERT_GT(sim.ring_position, 1e-3) << c.name;
        sim.peak_luminosity = 1e40;
        frame({c.key});
        EXPECT_EQ(last_frame.beam_kind, c.kind) << c.name;
        EXPECT_EQ(last_frame.restarts, 1) << c.name;
        EXPECT_EQ(sim.ring_position, 1e-6 + sim.step_length) << c.name << ": 1e-6, then one step";
        EXPECT_EQ(sim.peak_luminosity, last_frame.luminosity)
            << c.name << ": the peak restarted at 1e-6 and took this frame's luminosity";
        EXPECT_EQ(sim.particle_count, 10000) << c.name;
        frame({c.key});   // held: no second beam
        EXPECT_EQ(last_frame.beam_kind, beam_none) << c.name << " held";
    }
    // The parallel beam has no angles and stays without them while no magnet acts.
    frame({'P'});
    frame();
    for (int i = 0; i < sim.particle_count; i++) ASSERT_TRUE(beam_xp[i] == 0 && beam_yp[i] == 0) << i;
}

TEST_F(Frame, KoraOnKeepsTheBeamOneFrameThenMakesTheMatchedKVBeam)
{
    frame();
    frame();
    std::vector<particle> before = beam_copy();
    frame({'I'});
    EXPECT_EQ(last_frame.beam_kind, beam_none);
    EXPECT_TRUE(sim.kora_lattice) << "current from the end of the frame";
    EXPECT_FALSE(sim.beam_made_for_kora);
    EXPECT_EQ(sim.component_index, -1) << "the frame itself still ran without KORA";
    EXPECT_EQ(beam_copy().size(), before.size());

    frame();
    EXPECT_EQ(last_frame.beam_kind, beam_kv);
    EXPECT_EQ(last_frame.restarts, 1);
    EXPECT_TRUE(sim.beam_made_for_kora);
    EXPECT_GE(sim.component_index, 0);
    // Scaled to KORA: |x| <= 0.0324 m, |x'| <= 0.00231 rad.
    for (int i = 0; i < sim.particle_count; i++)
        ASSERT_TRUE(std::fabs(beam_x[i]) <= 0.0324 + 0.0001 && std::fabs(beam_xp[i]) <= 0.00232) << i;
    frame();
    EXPECT_EQ(last_frame.beam_kind, beam_none) << "made once only";
}

TEST_F(Frame, HighlightSwapsOneParticleIntoSlotZero)
{
    frame();
    sim.simulation_speed = 0;   // from the next frame on every step has length 0
    frame();
    std::vector<particle> before = beam_copy();
    frame({'H'});
    ASSERT_TRUE(sim.highlight);
    std::vector<particle> after = beam_copy();
    ASSERT_EQ(after.size(), before.size());
    int changed = 0, j = -1;
    for (size_t i = 1; i < after.size(); i++)
        if (!(after[i] == before[i])) {
            changed++;
            j = (int)i;
        }
    ASSERT_EQ(changed, 1) << "exactly one particle changes place with particle 0";
    EXPECT_EQ(after[0].x, before[j].x);
    EXPECT_EQ(after[0].yp, before[j].yp);
    EXPECT_EQ(after[j].y, before[0].y);
    EXPECT_EQ(after[j].xp, before[0].xp);
    EXPECT_EQ(after[0].p, before[0].p) << "momenta stay where they were";
    EXPECT_EQ(after[j].p, before[j].p);
    frame();
    frame({'H'});
    EXPECT_FALSE(sim.highlight);
}

// ---- Magnets and the scraper -------------------------------------------------------------------

TEST_F(Frame, MagnetKeysInTheFrame)
{
    frame();
    frame({VK_LEFT});
    EXPECT_EQ(magnets.quad_strength, 2) << "Left with the scraper off still feeds the quadrupole";
    EXPECT_EQ(sim.scraper_x, 0.03);
    frame({'4', '5', '8'});
    EXPECT_EQ(magnets.quad_strength, 0) << "a pair held together cancels";
    EXPECT_EQ(magnets.octupole, 900);
    frame();
    EXPECT_EQ(magnets.octupole, 0) << "released: no memory";
}

TEST_F(Frame, ScraperMovesWithinItsLimitsAndCuts)
{
    frame();
    frame({'S'});
    ASSERT_TRUE(sim.scraper_on);
    frame({VK_LEFT});
    EXPECT_DOUBLE_EQ(sim.scraper_x, 0.0295);
    EXPECT_EQ(magnets.quad_strength, 2);
    sim.scraper_x = 0.0012;
    for (int i = 0; i < 4; i++) frame({VK_LEFT});
    EXPECT_EQ(sim.scraper_x, 0.0);
    frame();
    EXPECT_EQ(sim.scraper_x, 0.0) << "no arrow held: the scraper stays";
    for (int i = 0; i < sim.particle_count; i++)
        ASSERT_LE(beam_x[i], 0.0) << "the scraper at 0 removes every particle with x > 0";
    EXPECT_LT(sim.particle_count, 6000);
    sim.scraper_x = 0.0693;
    frame({VK_RIGHT});
    EXPECT_DOUBLE_EQ(sim.scraper_x, 0.0698);
    for (int i = 0; i < 3; i++) frame({VK_RIGHT});
    EXPECT_EQ(sim.scraper_x, 0.07);
    frame({VK_LEFT, VK_RIGHT});
    EXPECT_DOUBLE_EQ(sim.scraper_x, 0.07) << "both held: -0.0005 then +0.0005";
}

// ---- Other keys ------------------------------------------------------------------------------

TEST_F(Frame, CtrlSSavesAScreenshotAndLeavesTheScraper)
{
    auto screenshots = [] {
        std::vector<std::filesystem::path> names;
        for (const auto &e : std::filesystem::directory_iterator("."))
            if (e.path().filename().string().starts_with("Fentra_")) names.push_back(e.path());
        return names;
    };
    for (const auto &n : screenshots()) std::filesystem::remove(n);
    frame();
    frame({VK_CONTROL, 'S'});
    EXPECT_EQ(last_frame.screenshot, 1);
    EXPECT_FALSE(sim.scraper_on);
    std::vector<std::filesystem::path> names = screenshots();
    ASSERT_EQ(names.size(), 1u);
    // The BMP stays unless an image converter turned it into a PNG.
    if (names[0].extension() == ".bmp") {
        EXPECT_EQ(std::filesystem::file_size(names[0]), 54u + 1920 * 480) << "640 x 480, 24 bits";
    }
    for (const auto &n : names) std::filesystem::remove(n);
    frame();
    frame({'S'});
    EXPECT_EQ(last_frame.screenshot, 0);
    EXPECT_TRUE(sim.scraper_on);
}

TEST_F(Frame, ToggledGraphsChangeTheViewFromTheNextFrame)
{
    frame();
    frame({'A'});
    EXPECT_TRUE(sim.show_graphs);
    EXPECT_EQ(last_frame.view.centre_y, 240) << "this frame was laid out before the toggle";
    frame();
    EXPECT_EQ(last_frame.view.centre_y, 172) << "(int)(0.36 x 480)";
    EXPECT_DOUBLE_EQ(last_frame.view.pixels_per_metre, 480 / (0.15 * 1.5));
    frame({'L', 'C'});
    EXPECT_EQ(sim.luminous, 1);
    EXPECT_TRUE(sim.space_charge);
}

TEST_F(Frame, HelpScreenWaitsForF1ToGoAndSpaceThenTheFrameGoesOn)
{
    frame();
    frame();
    // The help screen's pumps: F1 still down, then up, then Space.
    queued_snapshots = {{VK_F1}, {}, {VK_SPACE}};
    EXPECT_EQ(frame({VK_F1}), 0);
    EXPECT_TRUE(queued_snapshots.empty());
    EXPECT_EQ(last_frame.beam_kind, beam_game) << "the Space that closed the help makes a beam";
    EXPECT_EQ(last_frame.restarts, 1);
}

TEST_F(Frame, QAndEscapeQuit)
{
    EXPECT_EQ(frame(), 0);
    EXPECT_EQ(frame({'Q'}), 1);
    EXPECT_EQ(frame({VK_ESCAPE}), 1);
    EXPECT_EQ(frame({'W'}), 0);
}

TEST_F(Frame, SlowMotionMakesAFifthOfTheStep)
{
    frame();
    sim.simulation_speed = 256;   // readings are 1/256 s apart: the step counts readings
    frame();
    double whole = sim.step_length;
    EXPECT_EQ(whole, std::floor(whole)) << "a whole number of readings";
    frame({VK_SHIFT});
    EXPECT_EQ(sim.step_length, 0.2 * whole);
}

// ---- A flat beam under space charge -------------------------------------------------------

// ---- Scripted scenes against reference pictures ----------------------------------------------

// The frame as Ctrl+S saves it (a BMP: no image converter on PATH for the test), as RGB rows
// from the top.
static std::vector<unsigned char> saved_frame(std::initializer_list<int> keys)
{
    std::vector<int> with_ctrl_s(keys);
    with_ctrl_s.push_back(VK_CONTROL);
    with_ctrl_s.push_back('S');
    std::string path = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", "/nonexistent", 1);
    set_held(with_ctrl_s);
    pump_events();
    run_frame();
    setenv("PATH", path.c_str(), 1);
    std::vector<unsigned char> rgb((size_t)640 * 480 * 3);
    for (const auto &e : std::filesystem::directory_iterator(".")) {
        std::string name = e.path().filename().string();
        if (!name.starts_with("Fentra_")) continue;
        std::vector<unsigned char> bmp(std::filesystem::file_size(e.path()));
        FILE *f = fopen(name.c_str(), "rb");
        EXPECT_EQ(fread(bmp.data(), 1, bmp.size(), f), bmp.size());
        fclose(f);
        std::filesystem::remove(e.path());
        EXPECT_EQ(bmp.size(), 54u + rgb.size());
        for (size_t y = 0; y < 480 && bmp.size() == 54 + rgb.size(); y++)
            for (size_t x = 0; x < 640; x++)
                for (int c = 0; c < 3; c++)
                    rgb[(y * 640 + x) * 3 + c] = bmp[54 + ((479 - y) * 640 + x) * 3 + 2 - c];
    }
    return rgb;
}

// Each scene from a fresh start: the default beam with its heads-up display; the KORA ring with
// the map, the graphs, momentum colours, the highlight, the scraper and glowing particles; the
// game beam squeezed by the quadrupoles with collision sparks of every kind.
TEST_F(Frame, ScenesMatchTheirReferencePictures)
{
    frame();
    frame({'5'});
    EXPECT_TRUE(matches_reference("scene_default", saved_frame({'4', '6', '8', '2', 'O'}), 640, 480));

    SetUp();
    frame();
    frame({'I'});
    frame();   // the K-V beam made for KORA restarts this frame
    for (int key : std::initializer_list<int>{'A', 'D', 'H', 'S', 'L'}) frame({key});
    for (int k = 0; k < 3; k++) frame();
    EXPECT_TRUE(matches_reference("scene_kora", saved_frame({}), 640, 480));

    SetUp();
    frame();
    for (int k = 0; k < 3; k++) {
        spark s = {-80.0 + 80 * k, -40.0 + 30 * k, 3.0 * k, -2.0, k};   // from the centre, pixels
        growarray_append(&sim.spark_list, &s);
    }
    frame({'5', VK_RIGHT});
    EXPECT_TRUE(matches_reference("scene_sparks", saved_frame({'5', '7', '9', '3', '0'}), 640, 480));
}
