// Runs every benchmark of pv_bench, then prints each one's time as a multiple of BM_Floor with
// the same arguments, measured in the same run. A benchmark of another area (e.g. decoding a
// TIFF file of a given size) gets its ratio by taking the megapixels as its argument; one with
// a floor of its own names it in its label, "vs BM_Name/ARGS".
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

// "BM_Name/16/real_time" -> "/16": the first argument, which is the size in megapixels.
std::string argumentsOf(const std::string& name) {
    const auto slash = name.find('/');
    if (slash == std::string::npos) {
        return {};
    }
    return name.substr(slash, name.find('/', slash + 1) - slash);
}

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times_.push_back(
                    {run.benchmark_name(), run.GetAdjustedRealTime(), run.report_label});
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() const {
        std::map<std::string, double> floors;
        for (const Timed& t : times_) {
            if (t.name.rfind("BM_Floor/", 0) == 0) {
                floors[argumentsOf(t.name)] = t.time;
            }
        }
        std::printf("\nTime / floor (a plain byte-summing loop over the same bitmap):\n");
        for (const Timed& t : times_) {
            if (t.name.rfind("BM_Floor/", 0) == 0 || !t.label.empty()) {
                continue;
            }
            const auto floor = floors.find(argumentsOf(t.name));
            if (floor != floors.end() && floor->second > 0) {
                std::printf("  %-40s %6.2fx\n", t.name.c_str(), t.time / floor->second);
            }
        }
        std::printf("\nTime / the floor named in the label:\n");
        for (const Timed& t : times_) {
            if (t.label.rfind("vs ", 0) != 0) {
                continue;
            }
            const std::string floorName = t.label.substr(3) + "/";
            for (const Timed& f : times_) {
                if (f.name.rfind(floorName, 0) == 0 && f.time > 0) {
                    std::printf("  %-40s %6.2fx  %s\n", t.name.c_str(), t.time / f.time,
                                t.label.c_str());
                }
            }
        }
    }

  private:
    struct Timed {
        std::string name;
        double time;
        std::string label;
    };
    std::vector<Timed> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    return 0;
}
