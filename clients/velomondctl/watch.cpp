#include "velomondctl/watch.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include "velomondctl/commands.h"

namespace {

volatile std::sig_atomic_t g_ended = 0;

void end_watch(int /*number*/)
{
    g_ended = 1;
}

TOutcome look(TQueryApi *api, std::chrono::milliseconds timeout, TLook *now)
{
    api->begin(timeout);
    TOutcome outcome = snapshot_fetch_states(api, &now->states);
    if (!outcome.ok())
        now->absent = outcome.text;
    return outcome;
}

} // namespace

std::vector<std::string> watch_first(const TLook &now)
{
    if (!now.absent.empty())
        return {"monitor: " + now.absent};
    const TSnapshot &states = now.states;
    return {"disks: " + states.disks.state, "fans: " + states.fans.state, "recording: " + states.recording.state,
            "cameras: " + std::to_string(states.cameras_there() - states.cameras_failed()) + " connected, " +
                std::to_string(states.cameras_failed()) + " failed"};
}

std::vector<std::string> watch_changes(const TLook &before, const TLook &now)
{
    if (!now.absent.empty())
        return before.absent.empty() ? std::vector{"monitor: " + now.absent} : std::vector<std::string>();
    if (!before.absent.empty()) {
        std::vector<std::string> lines = watch_first(now);
        lines.insert(lines.begin(), "monitor: answers again");
        return lines;
    }
    std::vector<std::string> lines;
    const auto compare = [&lines](const std::string &what, const std::string &old, const std::string &text) {
        if (old != text)
            lines.push_back(what + ": " + old + " -> " + text);
    };
    compare("disks", before.states.disks.state, now.states.disks.state);
    compare("fans", before.states.fans.state, now.states.fans.state);
    compare("hardware", before.states.hardware, now.states.hardware);
    compare("recording", before.states.recording.state, now.states.recording.state);
    for (size_t id = 0; id < kChannels; ++id)
        compare("camera " + std::to_string(id) + " (" + channel_name(now.states, id) + ")",
                camera_word(before.states.cameras.state[id]), camera_word(now.states.cameras.state[id]));
    return lines;
}

TOutcome command_watch(const TSettings &settings, const TWatchWanted &wanted)
{
    struct sigaction action = {};
    action.sa_handler = end_watch; // without SA_RESTART: it ends the wait
    (void)sigaction(SIGINT, &action, nullptr);
    (void)sigaction(SIGTERM, &action, nullptr);
    TQueryApi api(settings.address);
    TLook before;
    TOutcome newest;
    for (unsigned pass = 0; g_ended == 0 && (wanted.passes == 0 || pass < wanted.passes); ++pass) {
        if (pass > 0) {
            const auto ms = wanted.interval.count();
            timespec left = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
            if (nanosleep(&left, nullptr) != 0 && g_ended != 0)
                break;
        }
        TLook now;
        newest = look(&api, settings.timeout, &now);
        std::string text;
        for (const std::string &line : pass == 0 ? watch_first(now) : watch_changes(before, now))
            text += time_text_utc(time(nullptr)) + " " + line + "\n";
        TOutcome outcome = put_out(text);
        if (!outcome.ok())
            return outcome;
        before = std::move(now);
    }
    return g_ended != 0 ? TOutcome() : newest;
}
