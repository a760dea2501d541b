// Measures decoration, nesting and the whole tree handler over a platform that does almost nothing.
//
// Each time is also given as a ratio to one deep copy of the answer, measured alternately in the same run.
#include "bench/shapes.h"
#include "bench/trivial_platform.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_zem.h"
#include "tree/node_decoration.h"
#include "tree/tree_assembly.h"

namespace {

using namespace bench;

using Nodes = TrivialPlatform;  // the platform's nodes, or a copy that a measurement changes

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

// Makes the nodes that a store's converters would return for a fleet of that shape.
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

// Returns the time of one step. Copying its input is not measured, except by the handler, which makes its own nodes.
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

// Measures one step and a copy of the answer alternately.
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
    const auto measurementOf = [](Step step) {
        return [step](benchmark::State& state, const Shape& shape) { measure(state, shape, step); };
    };
    return runForEachShape(argc, argv,
                           {{"decoration", measurementOf(Step::decoration)},
                            {"assembly", measurementOf(Step::assembly)},
                            {"handler", measurementOf(Step::handler)}});
}
