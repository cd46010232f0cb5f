#include <algorithm>
#include <atomic>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <span>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "base/log_stream.h"
#include "base/thread.h"
#include "common/local_time.h"
#include "common/tick.h"
#include "common/trace.h"
#include "core/VeloMond.h"
#include "platform/config_readers.h"
#include "platform/diag.h"
#include "platform/host_path.h"
#include "platform/vos_cond.h"

namespace {

constexpr const char *kProgram = "VeloMond";
constexpr const char *kLockFile = "/var/lock/VeloMond";

bool is_daemon = false;
std::atomic<bool> g_exit{false};
std::atomic<unsigned> g_prints_wanted{0}; // debug signals not yet answered
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<unsigned>::is_always_lock_free,
              "signal handlers touch them");

template <size_t kSize> void put(const char (&text)[kSize])
{
    (void)log_stream_write(STDERR_FILENO, text, kSize - 1);
}

/* Handlers interrupt anything, so they only write, count and set a flag. The main
 * thread's wait loop prints what a debug signal requests. */
void proc_int(int /*signal*/)
{
    put("main:proc_int(108)\n");
    g_exit = true;
}

void proc_test(int /*signal*/)
{
    put("main:proc_test(126)\n");
    ++g_prints_wanted;
}

/* Out of memory ends the start, and the service manager tries again: better than to run
 * for years without a part of the daemon. */
[[noreturn]] void end_orderly()
{
    put("out of memory while starting or stopping\n");
    _exit(1);
}

/* Before all static objects: their construction is part of the start. */
struct TStart {
    TStart() { std::set_terminate(end_orderly); }
};
__attribute__((init_priority(101))) const TStart g_start;

void print_usage()
{
    write_stderr("%s \n", kProgram);
    write_stderr("usage : %s [OPTION]... \n\n", kProgram);
    write_stderr("OPTION: \n");
    write_stderr("  -d                run as daemon.\n");
    write_stderr("  -h                show this info.\n");
}

/* What getopt() returns for a letter. */
int option_of(char letter)
{
    return letter == 'd' || letter == 'h' ? letter : '?';
}

void take_option(char letter)
{
    switch (option_of(letter)) {
    case 'd':
        is_daemon = true;
        return;
    case 'h':
        break;
    case '?':
        write_stderr("Illegal option:-%c\n", isprint(static_cast<unsigned char>(letter)) != 0 ? letter : '#');
        break;
    default:
        write_stderr("Not supported option\n");
        break;
    }
    print_usage();
    exit(0);
}

/* As getopt() does for "dh", without its global state: options may be combined, "--" ends
 * them, other arguments are skipped. */
void parse_options(std::span<char *const> arguments)
{
    for (const std::string_view argument : arguments.subspan(std::min<size_t>(arguments.size(), 1))) {
        if (argument == "--")
            return;
        if (argument.starts_with('-'))
            std::ranges::for_each(argument.substr(1), take_option);
    }
}

void print_banner()
{
    write_stderr("==== execute %s ==== \n", kProgram);
    write_stderr("is_daemon     : [%s]\n", is_daemon ? "true" : "false");
    const struct tm now = local_time_of(wall_clock_s());
    char execute_time[26] = "";
    (void)strftime(execute_time, sizeof(execute_time), "%a %b %e %H:%M:%S %Y", &now); // in English: no locale is set
    write_stderr("execute_time  : [%s]\n", execute_time);
}

/* The parent may have closed these. The next file or socket would get their numbers,
 * and trace lines would be written into it. */
void fill_standard_descriptors()
{
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDWR);
    if (fd > STDERR_FILENO)
        close(fd);
}

void daemonize()
{
    const std::string lock_file = host_path(kLockFile); // a relative root counts from the current folder
    write_stderr("%s()\n", "daemonize");
    const pid_t pid = fork();
    if (pid < 0)
        exit(1);
    if (pid > 0)
        exit(0);
    umask(0);
    if (setsid() < 0 || chdir("/") < 0)
        exit(1);
    /* Stays open, and so locked, for the life of the process. */
    const int lock = open(lock_file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640);
    if (lock < 0 || lockf(lock, F_TLOCK, 0) < 0)
        exit(1);
    /* The process id is logged here only: tools expect the lock file to be empty. */
    write_stderr("pid=[%d]\n", getpid());
}

void register_signal_handler()
{
    trace("main", "register_signal_handler", 142);
    signal(SIGINT, proc_int);
    signal(SIGTERM, proc_int);
    signal(SIGHUP, proc_test);
    for (const int crash : {SIGSEGV, SIGABRT, SIGTRAP})
        (void)diag_com_install_siganl_handler(crash, kProgram, 0);
}

/* For all threads, also those that libraries create. The default is 8 MiB each,
 * and where transparent huge pages are always on, the first byte of such a stack
 * takes 2 MiB. The deepest stack measured is 72 KiB, in the first call of another
 * service; answers are parsed 64 levels deep at most. */
void limit_thread_memory()
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kThreadStack);
    (void)pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
    /* One heap instead of one per pair of threads, so that all share free memory:
     * 0.3 MiB less after a day, at the same request rate. */
    (void)mallopt(M_ARENA_MAX, 1);
}

} // namespace

int main(int argc, char **argv)
{
    fill_standard_descriptors();
    signal(SIGPIPE, SIG_IGN); // a closed connection is only an error of that write
    signal(SIGCHLD, SIG_DFL); // if inherited as ignored, the exit status of tools is lost
    trace("main", "main", 277);
    parse_options({argv, static_cast<size_t>(argc)});
    print_banner();
    if (is_daemon)
        daemonize();
    register_signal_handler();
    limit_thread_memory();
    vos_cond_t cond = {};
    vos_cond_wait_init(&cond, 1);

    {
        /* Signals belong to the main thread: the threads of the libraries inherit this
         * mask. What arrives meanwhile stays pending. */
        const TSignalsHeld held;
        VeloMond_start();
        std::set_terminate(std::abort); // from now on it is a crash
    }
    if (const std::string missing = config_missing(); !missing.empty())
        write_stderr("%s\n", missing.c_str());
    while (!g_exit) {
        vos_cond_wait(&cond, 1);
        tick_run();
        for (unsigned wanted = g_prints_wanted.exchange(0); wanted > 0; --wanted)
            VeloMond_debug_print();
    }
    tick_end();
    std::set_terminate(end_orderly);
    VeloMond_stop();
    vos_cond_wait_destroy(&cond);
    exit(0);
}
