#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include <curses.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "query_api/clean_text.h"
#include "velomondctl/commands.h"
#include "velomondctl/top_frame.h"

namespace {

using namespace std::chrono_literals;

/* Fetches every ten seconds on a separate thread, so that keys work while the monitor
 * hangs. */
class TFeeder {
public:
    explicit TFeeder(const TSettings &settings) : m_settings(settings), m_thread([this] { run(); }) {}
    ~TFeeder()
    {
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_end = true;
        }
        m_wake.notify_all();
        m_thread.join(); // a request under way is waited for, a time-out at most
    }
    TFeeder(const TFeeder &) = delete;
    TFeeder &operator=(const TFeeder &) = delete;

    TTopData data()
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_data;
    }
    void ask_now()
    {
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_ask = true;
        }
        m_wake.notify_all();
    }

private:
    void run()
    {
        TQueryApi api(m_settings.address);
        std::unique_lock<std::mutex> lock(m_lock);
        m_data.place = clean_text(m_settings.address.host) + ":" + std::to_string(m_settings.address.port);
        while (!m_end) {
            TTopData next = m_data;
            m_ask = false;
            lock.unlock();
            api.begin(m_settings.timeout);
            (void)top_fetch(&api, time(nullptr), &next);
            lock.lock();
            m_data = std::move(next);
            m_wake.wait_for(lock, 10s, [this] { return m_end || m_ask; });
        }
    }

    const TSettings m_settings;
    std::mutex m_lock;
    std::condition_variable m_wake;
    TTopData m_data; // guarded by m_lock, as are:
    bool m_ask = false;
    bool m_end = false;
    std::thread m_thread;
};

bool is_utf8()
{
    return std::string_view(nl_langinfo(CODESET)) == "UTF-8";
}

struct TScreenEnd {
    void operator()(SCREEN *screen) const
    {
        (void)endwin();
        delscreen(screen);
    }
};

attr_t attributes_of(TTone tone)
{
    switch (tone) {
    case TTone::kGood:
        return COLOR_PAIR(1);
    case TTone::kWarning:
        return COLOR_PAIR(2);
    case TTone::kBad:
        return COLOR_PAIR(3) | A_BOLD;
    case TTone::kDim:
        return A_DIM;
    case TTone::kBold:
        return A_BOLD;
    case TTone::kPlain:
        break;
    }
    return A_NORMAL;
}

void draw(const std::vector<TTopLine> &lines)
{
    (void)erase();
    for (size_t row = 0; row < lines.size(); ++row) {
        (void)move(static_cast<int>(row), 0);
        for (const TSpan &span : lines[row]) {
            (void)attrset(static_cast<int>(attributes_of(span.tone)));
            (void)addstr(span.text.c_str());
        }
    }
    (void)attrset(A_NORMAL);
    (void)refresh();
}

/* False for the key that ends the view. */
bool take_key(int key, TTopView *view, TFeeder *feeder)
{
    switch (key) {
    case 'q':
    case 'Q':
    case 27: // escape
        if (view->help) {
            view->help = false;
            return true;
        }
        return false;
    case 'c':
        view->sort = TTopSort::kCpu;
        break;
    case 'm':
        view->sort = TTopSort::kMemory;
        break;
    case 'n':
        view->sort = TTopSort::kName;
        break;
    case 'h':
    case '?':
        view->help = !view->help;
        break;
    case 'r':
        feeder->ask_now();
        break;
    default:
        break;
    }
    return true;
}

TOutcome show(const TSettings &settings)
{
    const std::unique_ptr<SCREEN, TScreenEnd> screen(newterm(nullptr, stdout, stdin));
    if (screen == nullptr)
        return failure(TFault::kInternal, "unknown type of terminal; use top --plain");
    (void)cbreak();
    (void)noecho();
    (void)curs_set(0);
    (void)keypad(stdscr, TRUE);
    set_escdelay(50);
    if (has_colors() && !settings.no_colour) {
        (void)start_color();
        (void)use_default_colors();
        constexpr short kDefault = -1;
        (void)init_pair(1, COLOR_GREEN, kDefault);
        (void)init_pair(2, COLOR_YELLOW, kDefault);
        (void)init_pair(3, COLOR_RED, kDefault);
    }
    timeout(200);
    TFeeder feeder(settings);
    TTopView view;
    view.utf8 = is_utf8();
    int key = ERR;
    do {
        view.columns = static_cast<size_t>(COLS);
        view.lines = static_cast<size_t>(LINES);
        draw(top_frame(feeder.data(), view));
        key = getch(); // KEY_RESIZE too, after which COLS and LINES are the new ones
    } while (take_key(key, &view, &feeder));
    return {};
}

TOutcome print_frame(const TSettings &settings, const TTopWanted &wanted)
{
    TTopView view;
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        view.columns = size.ws_col;
        view.lines = size.ws_row;
    }
    view.columns = wanted.columns > 0 ? wanted.columns : view.columns;
    view.lines = wanted.lines > 0 ? wanted.lines : view.lines;
    view.utf8 = is_utf8();
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    TTopData data;
    data.place = clean_text(settings.address.host) + ":" + std::to_string(settings.address.port);
    TOutcome outcome = top_fetch(&api, time(nullptr), &data);
    if (!outcome.ok())
        return outcome;
    std::string text;
    for (const TTopLine &line : top_frame(data, view)) {
        for (const TSpan &span : line)
            text += toned(span.text, span.tone, settings.colour());
        text += '\n';
    }
    return put_out(text);
}

} // namespace

TOutcome command_top(const TSettings &settings, const TTopWanted &wanted)
{
    if (wanted.plain)
        return print_frame(settings, wanted);
    if (isatty(STDOUT_FILENO) != 1 || isatty(STDIN_FILENO) != 1)
        return failure(TFault::kUsage, "top needs a terminal; top --plain prints one frame");
    return show(settings);
}
