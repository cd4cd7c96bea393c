// SPDX-License-Identifier: MIT
// measure: measures the daemons against their floors and prints the table. Runs on a private host; bench/run calls it.
#include "bench/measure/rows.h"
#include "bench/measure/servers.h"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <cstdio>
#include <regex>

namespace {

struct Options {
    std::string json;
    std::string markdown;
    std::string only;
    int rounds = 7;
    bool quick = false;
};

int Run(const Options &options) {
    Bench bench;
    bench.rounds = options.rounds;
    bench.quick = options.quick;
    const std::regex wanted(options.only);
    bench.isWanted = [&](const std::string &name) { return std::regex_search(name, wanted); };
    PrintHeading();
    MeasureStatusQuery(bench);
    MeasureManyClients(bench);
    MeasureIdleConnections(bench);
    MeasureStorm(bench);
    MeasureEnumeration(bench);
    MeasureRegistry(bench);
    MeasureCommits(bench);
    MeasureMillion(bench);
    MeasureLoad(bench);
    MeasureInProcess(bench);
    MeasureStart(bench);
    MeasureCommandLine(bench);
    MeasureMemory(bench);
    if (!options.json.empty()) WriteJson(options.json, bench.rows, bench.rounds);
    if (!options.markdown.empty()) WriteMarkdown(options.markdown, bench.rows, bench.rounds);
    return 0;
}

} // namespace

void AddRow(Bench &bench, Row row) {
    PrintRow(row);
    bench.rows.push_back(std::move(row));
}

int Samples(const Bench &bench, int samples) { return bench.quick ? std::max(samples / 10, 1) : samples; }

std::string Thousands(int number) {
    if (number < 1000) return std::to_string(number);
    return Thousands(number / 1000) + fmt::format(",{:03}", number % 1000);
}

int main(int argc, char **argv) {
    Options options;
    CLI::App app("Measures the daemons against what the wire itself costs.", "bench/run");
    app.add_option("--json", options.json, "write the table to this file as well, as JSON")->type_name("FILE");
    app.add_option("--markdown", options.markdown, "write it as a table in Markdown")->type_name("FILE");
    app.add_option("--only", options.only, "measure only the groups of rows whose names match")->type_name("REGEX");
    app.add_option("--rounds", options.rounds, "rounds of each comparison")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    app.add_flag("--quick", options.quick, "a tenth of the samples: shows that it runs, says little");
    app.failure_message([](const CLI::App *failed, const CLI::Error &error) {
        return "bench/run: " + CLI::FailureMessage::simple(failed, error);
    });
    try {
        app.parse(argc, argv);
        return Run(options);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "bench: %s\n", failure.what());
        return 1;
    }
}
