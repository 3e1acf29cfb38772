// receiver-soak: the receiver at work for long, on the simulated board.
//
// Half of the time is one process's; in the other half the process ends in every way in turn and is
// started again. Ends with a table; its exit status is 1 where something was out of bounds, 2 where
// the soak could not go on.

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/soak/sample_table.h"
#include "tests/soak/soak_session.h"

namespace {

using Seconds = std::chrono::duration<double>;

constexpr Seconds kShortestSession{20};
constexpr double kSessionsOfAll = 60;  // a short session's share of the time
constexpr std::size_t kLargestChunk = 48000;
constexpr unsigned kSamplesBetweenInterruptions = 10;

struct Options {
    Seconds time{0};
    Seconds between_samples{5};
    std::string clip;
    std::string output;
};

bool parse(int argc, char** argv, Options& options) {
    const option kOptions[] = {
        {"seconds", required_argument, nullptr, 's'},
        {"sample", required_argument, nullptr, 'n'},
        {"clip", required_argument, nullptr, 'c'},
        {"output", required_argument, nullptr, 'o'},
        {nullptr, 0, nullptr, 0},
    };
    for (int key = 0; (key = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        switch (key) {
            case 's':
                options.time = Seconds(std::atof(optarg));
                break;
            case 'n':
                options.between_samples = Seconds(std::atof(optarg));
                break;
            case 'c':
                options.clip = optarg;
                break;
            case 'o':
                options.output = optarg;
                break;
            default:
                return false;
        }
    }
    return options.time.count() > 0 && options.between_samples.count() > 0 &&
           !options.clip.empty() && !options.output.empty();
}

class Soak {
  public:
    explicit Soak(const Options& options)
        : options_(options), file_(options.output + "/samples.tsv") {
        std::ifstream clip(options.clip, std::ios::binary);
        const Bytes h264{std::istreambuf_iterator<char>(clip), {}};
        chunks_ = video_chunks(h264, kLargestChunk);
        file_ << header_line() << std::flush;
    }

    void run() {
        const auto short_session = std::max(options_.time / kSessionsOfAll, kShortestSession);
        run_session(options_.time / 2);
        while (passed() < options_.time) {
            run_session(std::min<Seconds>(short_session, options_.time - passed()));
        }
    }

    int report() const {
        const std::string table = summary_table(samples_);
        std::ofstream(options_.output + "/summary.txt") << table;
        printf("%zu samples in %u sessions, %.0f s\n%s", samples_.size(), session_,
               passed().count(), table.c_str());
        std::vector<std::string> findings = findings_in(samples_);
        findings.insert(findings.end(), findings_.begin(), findings_.end());
        for (const std::string& finding : findings) {
            printf("out of bounds: %s\n", finding.c_str());
        }
        return findings.empty() && !samples_.empty() ? 0 : 1;
    }

  private:
    Seconds passed() const { return Clock::now() - begun_; }

    void run_session(Seconds time) {
        SoakSession session(chunks_, session_ % 2 == 1);
        ++session_;
        const auto end = passed() + time;
        unsigned count = 0;
        do {
            std::this_thread::sleep_for(options_.between_samples);
            Sample sample = session.sample();
            sample.seconds = passed().count();
            sample.session = session_;
            samples_.push_back(sample);
            file_ << sample_line(sample) << std::flush;
            if (++count % kSamplesBetweenInterruptions == 0) {
                session.interrupt_application();
            }
        } while (passed() < end);
        const char* const ending = session.end(session_ - 1);
        printf("%7.0f s  session %u: %s\n", passed().count(), session_, ending);
        fflush(stdout);
        if (session.commands_lost() != 0 || session.parts_lost() != 0) {
            findings_.push_back("session " + std::to_string(session_) + " lost " +
                                std::to_string(session.commands_lost()) + " commands and " +
                                std::to_string(session.parts_lost()) + " parts");
        }
    }

    const Options& options_;
    std::vector<Bytes> chunks_;
    std::ofstream file_;
    const Clock::time_point begun_ = Clock::now();
    unsigned session_ = 0;
    std::vector<Sample> samples_;
    std::vector<std::string> findings_;
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        fprintf(stderr, "usage: receiver-soak --seconds S [--sample S] --clip FILE --output DIR\n");
        return 2;
    }
    try {
        Soak soak(options);
        int status = 0;
        try {
            soak.run();
        } catch (const std::exception& error) {
            fprintf(stderr, "receiver-soak: %s\n", error.what());
            status = 2;
        }
        return std::max(status, soak.report());
    } catch (const std::exception& error) {
        fprintf(stderr, "receiver-soak: %s\n", error.what());
        return 2;
    }
}
