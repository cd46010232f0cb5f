#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include "query_api/clean_text.h"
#include "velomondctl/commands.h"

namespace {

int ended(const TOutcome &outcome)
{
    if (!outcome.ok())
        (void)fprintf(stderr, "velomondctl: %s\n", clean_text(outcome.text, 1000).c_str());
    return static_cast<int>(outcome.fault);
}

constexpr const char *kCodes = R"(Exit codes: 0 done, 1 internal, 2 usage, 3 nothing answers, 4 time-out, 5 invalid
answer, 6 refused by the monitor, 7 not found, 8 cannot write. check: 0 OK, 1 WARNING,
2 CRITICAL, 3 UNKNOWN.)";

struct TFormatOption {
    TSettings *settings;
    void add(CLI::App *command) const
    {
        command->add_option("-o,--output", settings->format, "table, json or csv")
            ->transform(CLI::CheckedTransformer(std::map<std::string, TFormat>{
                {"table", TFormat::kTable}, {"json", TFormat::kJson}, {"csv", TFormat::kCsv}}));
    }
};

int run(int argc, char **argv)
{
    CLI::App app{"Asks the VeloMond monitor of this recorder and shows what it knows.", "velomondctl"};
    app.footer(kCodes);
    app.require_subcommand(1);
    app.fallthrough(); // general options may stand after the command too
    app.set_version_flag("--version", std::string("velomondctl ") + VELOMOND_VERSION);

    TSettings settings;
    double timeout_s = 3;
    app.add_option("--host", settings.address.host, "name or address of the monitor (127.0.0.1)");
    app.add_option("--port", settings.address.port, "its port (10191)")->check(CLI::Range(1, 65535));
    app.add_option("--timeout", timeout_s, "seconds for all of a command's requests (3)")
        ->check(CLI::Range(0.01, 3600.0));
    app.add_flag("--no-colour,--no-color", settings.no_colour, "no colours on a terminal");
    const TFormatOption format{&settings};

    int code = 0;
    const auto when = [&](CLI::App *command, auto act) {
        command->final_callback([&settings, &timeout_s, &code, act] {
            settings.timeout = std::chrono::milliseconds(static_cast<int64_t>(timeout_s * 1000));
            code = act();
        });
    };

    CLI::App *const status = app.add_subcommand("status", "one screen: disks, fans, recording, cameras, load, volumes");
    status->add_option("-o,--output", settings.format, "table or json")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, TFormat>{{"table", TFormat::kTable}, {"json", TFormat::kJson}}));
    when(status, [&] { return ended(command_status(settings)); });

    TFiguresWanted figures;
    constexpr struct {
        const char *name, *words;
        TTopic topic;
    } kTopics[] = {{"cpu", "CPU of the system, its cores and the recorder's services", TTopic::kCpu},
                   {"mem", "memory of the system and the recorder's services", TTopic::kMemory},
                   {"net", "traffic of the network interfaces", TTopic::kNetwork},
                   {"disk", "I/O of the cache devices", TTopic::kDisk}};
    for (const auto &one : kTopics) {
        CLI::App *const command = app.add_subcommand(one.name, one.words);
        command->add_option("NAME", figures.name, "one of those that are followed (all)");
        auto *const last =
            command->add_option("--last", figures.last, "average of the newest N intervals of 10 s; 0: of all")
                ->check(CLI::Range(0, 90));
        command->add_flag("--series", figures.series, "a row per minute, the newest first")->excludes(last);
        format.add(command);
        when(command, [&, topic = one.topic] {
            figures.topic = topic;
            return ended(command_figures(settings, figures));
        });
    }

    std::optional<unsigned> minutes;
    CLI::App *const cameras = app.add_subcommand("cameras", "the channels and their connection");
    cameras->add_option("--last", minutes, "the newest N minutes instead of one; 0: a day")->check(CLI::Range(0, 1440));
    format.add(cameras);
    when(cameras, [&] { return ended(command_cameras(settings, minutes)); });

    CLI::App *const disks = app.add_subcommand("disks", "state of the disks, load of the cache devices, volumes");
    format.add(disks);
    when(disks, [&] { return ended(command_disks(settings)); });

    bool wait = false;
    CLI::App *const dump = app.add_subcommand("dump", "has the monitor write its histories as CSV files");
    dump->add_flag("--wait", wait, "wait for it up to two minutes, whatever the time-out");
    when(dump, [&] { return ended(command_dump(settings, wait)); });

    std::string notice;
    CLI::App *const notify = app.add_subcommand("notify", "delivers a notice: the monitor looks for disks at once");
    notify->add_option("TYPE", notice, "storage, disks, bus, or a number")->required();
    when(notify, [&] { return ended(command_notify(settings, notice)); });

    TWatchWanted watched;
    double interval_s = 10;
    CLI::App *const watch = app.add_subcommand("watch", "changes of the states, a line each, until Ctrl-C");
    watch->add_option("--interval", interval_s, "seconds between two looks (10)")->check(CLI::Range(0.1, 3600.0));
    watch->add_option("--passes", watched.passes, "looks to take; 0: no end");
    when(watch, [&] {
        watched.interval = std::chrono::milliseconds(static_cast<int64_t>(interval_s * 1000));
        return ended(command_watch(settings, watched));
    });

    TCheckWanted checked;
    CLI::App *const check = app.add_subcommand("check", "one line and an exit code for a monitoring system");
    check->add_option("--warn", checked.warn,
                      "NAME=RANGE that warns outside; disks fans recording cameras cpu memory "
                      "swap volumes latency (disks=0 cameras=0)");
    check->add_option("--crit", checked.crit, "NAME=RANGE that is critical outside (disks=2 fans=0 recording=0)");
    when(check, [&] { return command_check(settings, checked); });

    TTopWanted topped;
    CLI::App *const top = app.add_subcommand("top", "live view: sparklines of 15 minutes, cameras, alarms");
    top->add_flag("--plain", topped.plain, "print one frame and end");
    top->add_option("--columns", topped.columns, "of a plain frame")->check(CLI::Range(40, 1000));
    top->add_option("--lines", topped.lines, "of a plain frame")->check(CLI::Range(10, 1000));
    when(top, [&] { return ended(command_top(settings, topped)); });
    TReportWanted reported;
    CLI::App *const report = app.add_subcommand("report", "one page with pictures of the histories");
    report->add_option("DUMP_FOLDER", reported.folder, "CSV files of a dump (the live monitor)");
    report->add_option("-o,--output", reported.file, "the page (velomond-report.html)");
    when(report, [&] { return ended(command_report(settings, reported)); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        return ended(put_out(app.help()));
    } catch (const CLI::CallForAllHelp &) {
        return ended(put_out(app.help("", CLI::AppFormatMode::All)));
    } catch (const CLI::CallForVersion &) {
        return ended(put_out(std::string("velomondctl ") + VELOMOND_VERSION + "\n"));
    } catch (const CLI::ParseError &error) {
        /* A plug-in that was started wrongly is not known to be critical. */
        const bool is_check = argc > 1 && std::string(argv[1]) == "check";
        (void)fprintf(stderr, "velomondctl: %s (see --help)\n", clean_text(error.what(), 300).c_str());
        return is_check ? 3 : static_cast<int>(TFault::kUsage);
    }
    return code;
}

} // namespace

int main(int argc, char **argv)
{
    (void)setlocale(LC_CTYPE, ""); // characters only: numbers keep their points
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        return ended(failure(TFault::kInternal, error.what()));
    }
}
