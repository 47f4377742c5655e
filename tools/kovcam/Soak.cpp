// Long use: every mode, over and over, while what the process holds is watched.

#include "tools/kovcam/Soak.h"

#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

#include "host/runtime/Heaps.h"
#include "shots/Commands.h"
#include "tools/kovcam/Clock.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/SafeFile.h"
#include "tools/kovcam/Signals.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace fs = std::filesystem;

namespace {

constexpr double kWarmUp = 0.2;  // share of the time in which caches fill
constexpr size_t kLeastSamples = 8;
constexpr int kLines = 12;     // of the table
constexpr double kSigmas = 3;  // by which a growth must exceed its uncertainty

/// What is counted, and by how much it may grow over a run: less than one for what is counted in pieces. Blocks are
/// used again, but one more is made whenever more shots than ever are on their way out at once.
struct Quantity {
    const char* name;
    const char* heading;
    const char* unit;
    double mayGrow;
};
constexpr std::array<Quantity, 5> kQuantities = {{{"resident memory", "resident MiB", "MiB", 8},
                                                  {"open files", "files", "", 0.5},
                                                  {"threads", "threads", "", 0.5},
                                                  {"shared heaps", "heaps", "", 0.5},
                                                  {"gate blocks", "blocks", "", 4}}};

struct Sample {
    double seconds;
    std::array<double, kQuantities.size()> held;
};

double entriesOf(const char* folder) {
    return static_cast<double>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

double residentMiB() {
    malloc_trim(0);  // what was freed is not held
    std::ifstream file("/proc/self/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

/// Where in the library the function lies that counts the gate's blocks: the library does not export it. 0 where nobody
/// says so; that quantity, the last, is left out then.
uintptr_t blocksAt() {
    const char* const place = std::getenv("KOV_SOAK_BLOCKS_AT");
    return place ? std::strtoul(place, nullptr, 16) : 0;
}

double gateBlocks() {
    const uintptr_t place = blocksAt();
    uintptr_t library = 0;
    const auto find = [](dl_phdr_info* info, size_t, void* found) {
        if (std::string_view(info->dlpi_name).find("libkovcameraadaptor.so") != std::string_view::npos)
            *static_cast<uintptr_t*>(found) = info->dlpi_addr;
        return 0;
    };
    dl_iterate_phdr(find, &library);
    if (!place || !library)
        return 0;
    const auto blocks = reinterpret_cast<size_t (*)()>(library + place);
    return static_cast<double>(blocks());
}

/// What is held once the camera's threads have left, for which they get a moment.
Sample take(double begin) {
    constexpr int kLooks = 200;
    for (int i = 0; i < kLooks && host::liveHeaps() > 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return {now() - begin,
            {residentMiB(), entriesOf("/proc/self/fd"), entriesOf("/proc/self/task"),
             static_cast<double>(host::liveHeaps()), gateBlocks()}};
}

/// The line of least squares through a quantity.
struct Line {
    double slope;        // in a second
    double uncertainty;  // its standard error
};
Line lineThrough(const std::vector<Sample>& samples, size_t quantity) {
    const auto count = static_cast<double>(samples.size());
    double time = 0;
    double mean = 0;
    for (const Sample& sample : samples) {
        time += sample.seconds / count;
        mean += sample.held[quantity] / count;
    }
    double both = 0;
    double spread = 0;
    double scatter = 0;
    for (const Sample& sample : samples) {
        const double dt = sample.seconds - time;
        const double dy = sample.held[quantity] - mean;
        both += dt * dy;
        spread += dt * dt;
        scatter += dy * dy;
    }
    const double slope = both / spread;
    return {slope, std::sqrt(std::max(0.0, scatter - slope * both) / (count - 2) / spread)};
}

/// The curves, one above the other, each from zero to its own largest value.
void writeCurve(const std::string& path, const std::vector<Sample>& samples, size_t quantities) {
    constexpr int kWidth = 720, kHeight = 90, kGap = 40;
    std::ostringstream svg;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\""
        << quantities * (kHeight + kGap) << "\" font-family=\"sans-serif\" font-size=\"13\">\n";
    for (size_t i = 0; i < quantities; ++i) {
        double most = 1;
        for (const Sample& sample : samples)
            most = std::max(most, sample.held[i]);
        const double bottom = static_cast<double>((i + 1) * (kHeight + kGap) - 10);
        svg << "<text x=\"0\" y=\"" << bottom - kHeight - 8 << "\">" << kQuantities[i].name << ", at most " << most
            << " " << kQuantities[i].unit << "</text>\n<path fill=\"none\" stroke=\"#2f7fd6\" d=\"";
        for (const Sample& sample : samples)
            svg << (&sample == samples.data() ? "M" : "L") << kWidth * sample.seconds / samples.back().seconds << " "
                << bottom - kHeight * sample.held[i] / most;
        svg << "\"/>\n<path stroke=\"#888\" d=\"M0 " << bottom << "H" << kWidth << "\"/>\n";
    }
    svg << "</svg>\n";
    const std::string text = svg.str();
    writeWhole(
        {text.begin(), text.end()}, [&](int) { return path; }, true);
}

/// The process's own words, while those of the commands that it runs go nowhere.
class Report {
public:
    Report() : mFile(fdopen(dup(STDOUT_FILENO), "w")), mOutput(dup(STDOUT_FILENO)), mErrors(dup(STDERR_FILENO)) {
        std::fflush(nullptr);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        ::close(nowhere);
    }
    ~Report() {
        std::fflush(nullptr);
        dup2(mOutput, STDOUT_FILENO);
        dup2(mErrors, STDERR_FILENO);
        ::close(mOutput);
        ::close(mErrors);
        std::fclose(mFile);
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    FILE* file() const { return mFile; }

private:
    FILE* const mFile;
    const int mOutput;
    const int mErrors;
};

class Soak {
public:
    Soak(const SoakOptions& options, const RunCommand& run)
        : mOptions(options),
          mRun(run),
          mRandom(options.seed),
          mFolder(fs::temp_directory_path() / ("kovcam-soak-" + std::to_string(getpid()))) {}
    ~Soak() {
        std::error_code ignored;
        fs::remove_all(mFolder, ignored);
    }
    Soak(const Soak&) = delete;
    Soak& operator=(const Soak&) = delete;

    void run() {
        const double begin = now();
        std::fprintf(mReport.file(), "%10s %10s", "seconds", "sessions");
        for (size_t i = 0; i < mQuantities; ++i)
            std::fprintf(mReport.file(), " %12s", kQuantities[i].heading);
        std::fprintf(mReport.file(), "\n");
        for (int sessions = 1; now() - begin < mOptions.seconds && endSignal() == 0; ++sessions) {
            if (sessions % 3 == 0)
                runRandomScript();
            else
                runDemonstration();
            mSamples.push_back(take(begin));
            fs::remove_all(mFolder);
            const Sample& last = mSamples.back();
            if (last.seconds * kLines >= mOptions.seconds * mPrinted) {
                ++mPrinted;
                std::fprintf(mReport.file(), "%10.0f %10d", last.seconds, sessions);
                for (size_t i = 0; i < mQuantities; ++i)
                    std::fprintf(mReport.file(), " %12.*f", i == 0, last.held[i]);
                std::fprintf(mReport.file(), "\n");
                std::fflush(mReport.file());
            }
        }
        conclude();
    }

private:
    int number(int least, int most) { return std::uniform_int_distribution<int>(least, most)(mRandom); }
    template <typename List>
    const auto& oneOf(const List& list) {
        return list[static_cast<size_t>(number(0, static_cast<int>(std::size(list)) - 1))];
    }

    /// Sizes at random, where the words name none.
    void addSizes(std::vector<std::string>& words) {
        static const std::pair<const char*, std::array<const char*, 3>> kSizes[] = {
            {"--preview-size", {"320x240", "640x480", "1280x720"}},
            {"--picture-size", {"640x480", "1280x960", "2560x1920"}}};
        for (const auto& [option, values] : kSizes) {
            if (std::ranges::find(words, option) == words.end())
                words.insert(words.end(), {option, oneOf(values)});
        }
    }

    void runDemonstration() {
        const Mode& mode = *oneOf(allModes());
        const std::vector<Demo> demos = mode.demos();
        const Demo& demo = oneOf(demos);
        std::vector<std::string> words = {"shoot", mode.name, "-o", mFolder};
        words.insert(words.end(), demo.arguments.begin(), demo.arguments.end());
        words.insert(words.end(), {"--patience", "300"});
        addSizes(words);
        mRun(words);
    }

    /// Steps in an order that nobody would choose: many are refused, none may do harm.
    void runRandomScript() {
        static const char* const kSteps[] = {"start-preview", "stop-preview", "picture", "autofocus"};
        fs::create_directories(mFolder);
        const fs::path path = mFolder / "script.kov";
        std::ofstream script(path);
        for (int step = number(3, 12); step > 0; --step) {
            script << "+0." << number(0, 4) << " ";
            switch (number(0, 3)) {
                case 0:
                    script << "mode " << oneOf(allModes())->name << "\n";
                    break;
                case 1:
                    script << "command " << oneOf(android::kKovCommands).name << " " << number(0, 3) << "\n";
                    break;
                default:
                    script << oneOf(kSteps) << "\n";
            }
        }
        script.close();
        // A picture that another step called off never comes.
        std::vector<std::string> words = {"script", path, "-i", "scene:still-life", "-o", mFolder, "--patience", "3"};
        addSizes(words);
        try {
            mRun(words);
        } catch (const Error&) {
            ++mRefused;
        }
    }

    void conclude() {
        if (!mOptions.curve.empty() && !mSamples.empty())
            writeCurve(mOptions.curve, mSamples, mQuantities);
        const double end = mSamples.empty() ? 0 : mSamples.back().seconds;
        const auto warm = std::ranges::find_if(mSamples, [&](const auto& s) { return s.seconds > end * kWarmUp; });
        const std::vector<Sample> rest(warm, mSamples.end());
        if (rest.size() < kLeastSamples)
            throw Error("too few sessions for a line; soak for longer");
        std::string growing;
        std::fprintf(mReport.file(), "%zu sessions, of which %d were refused in the middle, in %.0f s\n",
                     mSamples.size(), mRefused, end);
        for (size_t i = 0; i < mQuantities; ++i) {
            const Line line = lineThrough(rest, i);
            std::fprintf(mReport.file(), "%-16s %+.2f +/- %.2f %s an hour\n", kQuantities[i].name, line.slope * 3600,
                         line.uncertainty * 3600, kQuantities[i].unit);
            const double surely = line.slope - kSigmas * line.uncertainty;
            if (surely * (end - rest.front().seconds) > kQuantities[i].mayGrow)
                growing += (growing.empty() ? "" : ", ") + std::string(kQuantities[i].name);
        }
        if (!growing.empty())
            throw Error("more and more is held: " + growing);
    }

    const SoakOptions mOptions;
    const size_t mQuantities = kQuantities.size() - (blocksAt() ? 0 : 1);
    const RunCommand& mRun;
    std::mt19937 mRandom;
    const fs::path mFolder;
    const Report mReport;
    std::vector<Sample> mSamples;
    int mRefused = 0;
    int mPrinted = 0;
};

}  // namespace

void soak(const SoakOptions& options, const RunCommand& run) {
    mallopt(M_ARENA_MAX, 1);  // else every thread has an arena, which keeps what it freed as it pleases
    Soak(options, run).run();
}

}  // namespace kov::cam
