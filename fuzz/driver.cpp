// Runs a fuzz target without libFuzzer: so many inputs, mutated from its seeds by its own mutator, the same in every
// run. Also writes the seeds as files for libFuzzer, and runs a file that it has found.
//
//   target RUNS [RANDOM SEED]      target --seeds DIRECTORY      target --file FILE

#include "target.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <sys/time.h>

namespace {

std::mt19937 random_;
std::string input;

void run()
{
    const itimerval longest{{}, {20, 0}};  // of the processor; longer is endless
    setitimer(ITIMER_VIRTUAL, &longest, nullptr);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

// The input that ends the program is kept, to be run again.
void keepInput(int signal)
{
    std::ofstream{"fuzz-failure", std::ios::binary} << input;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

std::string mutated(const std::string& seed)
{
    std::string bytes = seed;
    bytes.resize(seed.size() + 8192);
    std::size_t size = seed.size();
    for (auto rounds = random_() % 3 + 1; rounds > 0; --rounds)
        size = LLVMFuzzerCustomMutator(reinterpret_cast<std::uint8_t*>(bytes.data()), size, bytes.size(),
                                       static_cast<unsigned>(random_()));
    bytes.resize(size);
    bytes.shrink_to_fit();
    return bytes;
}

}  // namespace

#if !defined(KALDB_LIBFUZZER)
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room)
{
    for (auto changes = random_() % 4 + 1; changes > 0; --changes) {
        const std::size_t at = size == 0 ? 0 : random_() % size;
        const unsigned kind = static_cast<unsigned>(random_() % 4);
        if (kind == 0 && size < room) {
            std::memmove(data + at + 1, data + at, size++ - at);
            data[at] = static_cast<std::uint8_t>(random_());
        } else if (kind == 1 && size > 1) {
            const std::size_t gone = std::min<std::size_t>(random_() % 8 + 1, size - at);
            std::memmove(data + at, data + at + gone, size - at - gone);
            size -= gone;
        } else if (size > 0) {
            data[at] = static_cast<std::uint8_t>(kind == 2 ? data[at] ^ 1u << random_() % 8 : random_() % 4 * 0x55);
        }
    }
    return size;
}
#endif

int main(int count, char** arguments)
{
    const std::string first = count > 1 ? arguments[1] : "1000";
    const std::vector<std::string> all = seeds();
    if (first == "--seeds") {
        for (std::size_t i = 0; i < all.size(); ++i)
            std::ofstream{std::string{arguments[2]} + "/seed" + std::to_string(i), std::ios::binary} << all[i];
        return 0;
    }
    std::signal(SIGABRT, keepInput);
    std::signal(SIGVTALRM, keepInput);
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    if (first == "--file") {
        std::ifstream file{arguments[2], std::ios::binary};
        input = {std::istreambuf_iterator<char>{file}, {}};
        run();
        return 0;
    }
    random_.seed(count > 2 ? static_cast<unsigned>(std::atoi(arguments[2])) : 1);
    const long runs = std::atol(first.c_str());
    for (long i = 0; i < runs; ++i) {
        input =
            i < static_cast<long>(all.size()) ? all[static_cast<std::size_t>(i)] : mutated(all[random_() % all.size()]);
        run();
    }
    std::fprintf(stderr, "%ld runs\n", runs);
    return 0;
}
