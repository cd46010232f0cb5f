#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz.h"

namespace {

constexpr size_t kMostCuts = 512;

void replay(std::string_view text)
{
    const auto exact = std::make_unique<char[]>(text.size()); // a sanitizer detects reads beyond it
    memcpy(exact.get(), text.data(), text.size());
    fuzz_one({exact.get(), text.size()});
}

} // namespace

/* replay FOLDER: runs each kept input, and each of its beginnings, as an interrupted writer leaves them. The last name
 * printed is that of the failing input. */
int main(int argc, char **argv)
{
    std::vector<std::filesystem::path> inputs;
    for (const auto &entry : std::filesystem::directory_iterator(argc == 2 ? argv[1] : "."))
        inputs.push_back(entry.path());
    std::sort(inputs.begin(), inputs.end());
    for (const auto &path : inputs) {
        puts(path.filename().c_str());
        (void)fflush(stdout);
        std::ifstream file(path, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        replay(text);
        for (size_t size = 0; size < std::min(text.size(), kMostCuts); ++size)
            replay(std::string_view(text).substr(0, size));
    }
    printf("%zu inputs\n", inputs.size());
    return inputs.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
