// A tree of groups, as many servers and 1,000 policies over a platform that does next to nothing: its decoration, its
// nesting and the whole handler, each as a ratio to one deep copy of the finished answer, measured in turns in the same
// run with the C library's allocator.
#include <climits>

#include <benchmark/benchmark.h>
#include <malloc.h>

#include "bench/shapes.h"
#include "bench/trivial_platform.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_zem.h"
#include "tree/node_decoration.h"
#include "tree/tree_assembly.h"

namespace {

using namespace bench;

using Nodes = TrivialPlatform;  // the store's nodes, or a copy of them to be worked on

Json::Value makeNode(int nodeType, int64_t id, int64_t parentId)
{
    Json::Value jNode;
    jNode["id"] = jNode["node_id"] = Json::Value(id);
    jNode["node_type"] = nodeType;
    jNode["parent_id"] = Json::Value(parentId);
    jNode["parent_type"] = VELQ_ZEM_TYPE_OU;
    jNode["name"] = "node " + std::to_string(id);
    jNode["mtime"] = Json::Value(int64_t(1790000000));
    jNode["revision"] = 1;
    return jNode;
}

// What the store's converters would give for a fleet of that shape.
Nodes makeNodes(const Shape& shape, int64_t groups)
{
    Nodes nodes;
    nodes.policyNames.push_back("");
    const Parents parents = shape.make(groups);
    for (int64_t id = 1; id <= groups; ++id) {
        Json::Value jOu = makeNode(VELQ_ZEM_TYPE_OU, id, parents[static_cast<size_t>(id - 1)]);
        jOu["desc"] = "";
        jOu["block_inheritance"] = 0;
        for (int64_t link = 0; link < kLinksPerGroup; ++link) {
            jOu["linked_gpo"]["order"].append(Json::Value())["id"] = Json::Value(linkedPolicy(id, link));
        }
        Json::Value jKx = makeNode(3, id, id);
        jKx["address"] = "10.0.0.1";
        nodes.jOu.append(std::move(jOu));
        nodes.jKx.append(std::move(jKx));
    }
    for (int64_t id = 1; id <= kPolicies; ++id) {
        Json::Value jGpo = makeNode(4, id, 0);
        jGpo["desc"] = "what the policy does";
        jGpo["setting"]["version"] = 3;
        nodes.jGpo.append(std::move(jGpo));
        nodes.policyNames.push_back("policy " + std::to_string(id));
    }
    return nodes;
}

void decorate(Nodes& nodes)
{
    add_info_to_node(nodes.jOu, nodes.jGpo);
    add_info_to_node(nodes.jKx, nodes.jGpo);
}

void assemble(Nodes& nodes, Json::Value& jData)
{
    BuildTreeJson(nodes.jOu, nodes.jKx, nodes.jGpo, jData);
}

void callHandler()
{
    VELQ::APIRequest request(1000, "admin", Json::Value());
    VELQ::APIResponse response;
    list_tree_by_uid_v1(&request, &response);
    if (!response.IsSuccess()) {
        abort();
    }
}

enum class Step { decoration, assembly, handler };

// What is worked on is made before the clock runs, as the handler's own nodes are a part of its work.
double secondsOf(Step step, const Nodes& decorated)
{
    Nodes nodes = step == Step::assembly ? decorated : platform;
    Json::Value jData(Json::arrayValue);
    switch (step) {
        case Step::decoration:
            return seconds([&] { decorate(nodes); });
        case Step::assembly:
            return seconds([&] { assemble(nodes, jData); });
        default:
            return seconds(callHandler);
    }
}

// Measures one step of the tree's making against a copy of the answer, in turns.
void measure(benchmark::State& state, const Shape& shape, Step step)
{
    platform = makeNodes(shape, state.range(0));
    Nodes decorated = platform;
    decorate(decorated);
    Json::Value jAnswer(Json::arrayValue);
    {
        Nodes nodes = decorated;
        assemble(nodes, jAnswer);
    }
    double copySeconds = 0;
    double stepSeconds = 0;
    for (auto _ : state) {
        Json::Value jCopy;
        copySeconds += seconds([&] { jCopy = jAnswer; });
        const double spent = secondsOf(step, decorated);
        stepSeconds += spent;
        state.SetIterationTime(spent);
    }
    state.counters["to_one_copy"] = stepSeconds / copySeconds;
}

}  // namespace

int main(int argc, char** argv)
{
    // Freed memory is kept, as the server's allocator keeps it: the work is measured, not the system's page faults.
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    benchmark::Initialize(&argc, argv);
    for (const Shape& shape : kShapes) {
        const std::pair<Step, std::string> steps[] = {
            {Step::decoration, "decoration/"}, {Step::assembly, "assembly/"}, {Step::handler, "handler/"}};
        for (const auto& [step, name] : steps) {
            // Half of the nodes are groups: 1,000, 10,000 and 100,000 nodes.
            benchmark::RegisterBenchmark((name + shape.szName).c_str(), measure, shape, step)
                ->Arg(500)
                ->Arg(5000)
                ->Arg(50000)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
