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

constexpr const char *kCodes =
    R"(Exit codes: 0 success, 1 internal error, 2 usage, 3 cannot connect, 4 time-out, 5 invalid
answer, 6 refused by the monitor, 7 not found, 8 cannot write. check: 0 OK, 1 WARNING,
2 CRITICAL, 3 UNKNOWN.)";

struct TFormatOption {
    TSettings *settings;
    void add(CLI::App *command) const
    {
        add(command, "table, json or csv",
            {{"table", TFormat::kTable}, {"json", TFormat::kJson}, {"csv", TFormat::kCsv}});
    }
    void add(CLI::App *command, const char *words, const std::map<std::string, TFormat> &formats) const
    {
        command->add_option("-o,--output", settings->format, words)
            ->type_name("FORMAT")
            ->transform(CLI::Validator(
                [words, formats](std::string &text) {
                    const auto found = formats.find(text);
                    if (found == formats.end())
                        return text + " is not " + words;
                    text = std::to_string(static_cast<int>(found->second));
                    return std::string();
                },
                ""));
    }
};

int run(int argc, char **argv)
{
    CLI::App app{"Shows the state of this recorder as the VeloMond monitor reports it.", "velomondctl"};
    app.footer(kCodes);
    app.require_subcommand(1);
    app.fallthrough(); // general options are accepted after the command too
    app.set_version_flag("--version", std::string("velomondctl ") + VELOMOND_VERSION);

    TSettings settings;
    double timeout_s = 3;
    app.add_option("--host", settings.address.host, "name or address of the monitor (127.0.0.1)")->type_name("HOST");
    app.add_option("--port", settings.address.port, "its port (10191)")
        ->type_name("PORT")
        ->check(CLI::Range(1, 65535).description(""));
    app.add_option("--timeout", timeout_s, "seconds for all requests of a command together (3)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 3600.0).description(""));
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
    format.add(status, "table or json", {{"table", TFormat::kTable}, {"json", TFormat::kJson}});
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
        command->add_option("NAME", figures.name, "one of the monitored names (all)")->type_name("");
        auto *const last =
            command->add_option("--last", figures.last, "average of the newest N intervals of 10 s; 0: of all")
                ->type_name("N")
                ->check(CLI::Range(0, 90).description(""));
        command->add_flag("--series", figures.series, "a row per minute, the newest first")->excludes(last);
        format.add(command);
        when(command, [&, topic = one.topic] {
            figures.topic = topic;
            return ended(command_figures(settings, figures));
        });
    }

    std::optional<unsigned> minutes;
    CLI::App *const cameras = app.add_subcommand("cameras", "the channels and their connections");
    cameras->add_option("--last", minutes, "the newest N minutes instead of one; 0: a day")
        ->type_name("N")
        ->check(CLI::Range(0, 1440).description(""));
    format.add(cameras);
    when(cameras, [&] { return ended(command_cameras(settings, minutes)); });

    CLI::App *const disks = app.add_subcommand("disks", "state of the disks, load of the cache devices, and volumes");
    format.add(disks);
    when(disks, [&] { return ended(command_disks(settings)); });

    bool wait = false;
    CLI::App *const dump = app.add_subcommand("dump", "write the histories as CSV files, on the recorder");
    dump->add_flag("--wait", wait, "wait up to two minutes, regardless of --timeout");
    when(dump, [&] { return ended(command_dump(settings, wait)); });

    std::string notice;
    CLI::App *const notify = app.add_subcommand("notify", "send a notice, e.g. to look for disks at once");
    notify->add_option("TYPE", notice, "storage, disks, bus, or a number")->type_name("")->required();
    when(notify, [&] { return ended(command_notify(settings, notice)); });

    TWatchWanted watched;
    double interval_s = 10;
    CLI::App *const watch = app.add_subcommand("watch", "print changes of state, a line each, until Ctrl-C");
    watch->add_option("--interval", interval_s, "seconds between two checks (10)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 3600.0).description(""));
    watch->add_option("--passes", watched.passes, "number of checks; 0: no limit")->type_name("N");
    when(watch, [&] {
        watched.interval = std::chrono::milliseconds(static_cast<int64_t>(interval_s * 1000));
        return ended(command_watch(settings, watched));
    });

    TCheckWanted checked;
    CLI::App *const check = app.add_subcommand("check", "one line and an exit code for a monitoring system");
    check
        ->add_option("--warn", checked.warn,
                     "WARNING if NAME is outside RANGE; disks fans recording cameras cpu memory "
                     "swap volumes latency (disks=0 cameras=0)")
        ->type_name("NAME=RANGE");
    check->add_option("--crit", checked.crit, "CRITICAL if NAME is outside RANGE (disks=2 fans=0 recording=0)")
        ->type_name("NAME=RANGE");
    when(check, [&] { return command_check(settings, checked); });

    TTopWanted topped;
    CLI::App *const top = app.add_subcommand("top", "live view: sparklines of 15 minutes, cameras, alarms");
    top->add_flag("--plain", topped.plain, "print one frame and exit");
    top->add_option("--columns", topped.columns, "of a plain frame")
        ->type_name("N")
        ->check(CLI::Range(40, 1000).description(""));
    top->add_option("--lines", topped.lines, "of a plain frame")
        ->type_name("N")
        ->check(CLI::Range(10, 1000).description(""));
    when(top, [&] { return ended(command_top(settings, topped)); });
    TReportWanted reported;
    CLI::App *const report = app.add_subcommand("report", "write an HTML page with charts of the histories");
    report->add_option("DUMP_FOLDER", reported.folder, "folder of a dump (default: the live monitor)")->type_name("");
    report->add_option("-o,--output", reported.file, "file to write (velomond-report.html)")->type_name("FILE");
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
        /* For a monitoring system a wrong argument is UNKNOWN, not CRITICAL. */
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
