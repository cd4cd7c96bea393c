// SPDX-License-Identifier: MIT
// tell_commands: the commands that find out why something is as it is, or what would be done, on the command line.
#include "tvsc/commands.h"
#include "tvsc/doctor.h"
#include "tvsc/leftovers.h"
#include "tvsc/plan.h"
#include "tvsc/plan_act.h"
#include "tvsc/timeline.h"

namespace {

const std::map<std::string, GraphFormat> graphFormats = {{"text", GraphFormat::text},
                                                         {"dot", GraphFormat::dot},
                                                         {"svg", GraphFormat::svg},
                                                         {"mermaid", GraphFormat::mermaid},
                                                         {"json", GraphFormat::json}};

void AddPlanCommands(CLI::App &app, CommandLine &line) {
    const auto planBoot = [&line] { return RunPlanBoot(line.options); };
    AddPlainCommand(app, line, "order", "Tell what the daemon starts with itself, in which order and why (plan boot)",
                    planBoot);
    CLI::App *plan = app.add_subcommand("plan", "Tell what would be done, without doing it");
    plan->require_subcommand(1);
    AddPlainCommand(*plan, line, "boot", "What the daemon starts with itself, in which order and why", planBoot);
    const std::tuple<const char *, PlannedAct, const char *> acts[] = {
        {"start", PlannedAct::start, "What start --with-deps would start"},
        {"stop", PlannedAct::stop, "What stop --with-dependents would stop"},
        {"restart", PlannedAct::restart, "What restart --with-dependents would stop and start"}};
    for (const auto &[word, act, help] : acts) {
        AddNames(AddCommand(*plan, line, word, help,
                            [&line, planned = act](Session &session) {
                                return RunPlanAct(session, planned, {.names = line.names});
                            }),
                 line);
    }
}

// A service may be called like a code: what is given as a name is none.
void AddExplainCommand(CLI::App &app, CommandLine &line) {
    CLI::App *explain = app.add_subcommand("explain", "Say what a Win32 code means, or why a service is as it is");
    CLI::Option *what = explain->add_option("what", line.what, "A code's number or name, or a service");
    CLI::Option *name = explain->add_option("--name", line.name, "A service, whatever it is called")->excludes(what);
    explain->callback([&line, what, name] {
        const bool isNamed = name->count() > 0;
        if (!isNamed && what->count() == 0) throw CLI::RequiredError(what->get_name());
        line.run = [&line, isNamed] {
            return isNamed ? RunExplainService(line.options, line.name) : RunExplain(line.options, line.what);
        };
    });
}

} // namespace

void AddTellCommands(CLI::App &app, CommandLine &line) {
    AddPlanCommands(app, line);
    AddExplainCommand(app, line);
    CLI::App *doctor = AddPlainCommand(app, line, "doctor", "Check everything that keeps services from running",
                                       [&line] { return RunDoctor(line.options, line.doctor); });
    doctor->add_flag("--strict", line.doctor.isStrict, "Exit with 1 for a warning, too");
    CLI::Option *file =
        doctor->add_option("--registry", line.doctor.registryFile, "Look at this .reg file only, and ask no daemon");
    file->type_name("FILE");
    doctor
        ->add_flag("--fix-rpcbind", line.doctor.mendsEntries,
                   "Remove what the port mapper has of processes that are gone; for root")
        ->excludes(file);
    AddNames(AddCommand(app, line, "tree", "Show as a tree what services need",
                        [&line](Session &session) { return RunGraph(session, line.names, GraphFormat::text); }),
             line, false);
    CLI::App *graph = AddCommand(app, line, "graph", "Draw what services need",
                                 [&line](Session &session) { return RunGraph(session, line.names, line.graphFormat); });
    AddNames(graph, line, false);
    graph->parse_complete_callback([&line] { line.options.json |= line.graphFormat == GraphFormat::json; });
    graph->add_option("--format", line.graphFormat, "text, dot, mermaid, json, or svg, which graphviz draws")
        ->transform(CLI::CheckedTransformer(graphFormats))
        ->type_name("FORMAT");
    AddPlainCommand(app, line, "timeline", "Show how the last automatic start went, service by service", [&line] {
        return RunTimeline(line.options, line.asSvg);
    })->add_flag("--svg", line.asSvg, "As a picture");
    CLI::App *leftovers = AddPlainCommand(app, line, "leftovers", "List the service processes of an earlier daemon",
                                          [&line] { return RunLeftovers(line.options, line.endsLeftovers); });
    leftovers->add_flag("--end", line.endsLeftovers, "End them");
    AddTimeout(leftovers, line);
}
