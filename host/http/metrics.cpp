// Writes the metrics of the server in the text format of Prometheus. The parts of the server keep their own numbers,
// which are read here.
#include "host/http/metrics.h"

#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include "host/base/memory_budget.h"
#include "store/store.h"

namespace host {

namespace {

using prometheus::MetricType;

// A metric with one value, or with one for each value of a label.
struct Metric {
    MetricType type;
    const char* szName;
    const char* szHelp;
    const char* szLabel;                                 // its name, empty for none
    std::vector<std::pair<const char*, double>> values;  // each with the value of the label
};

template <typename Number>
Metric gauge(const char* szName, const char* szHelp, Number value)
{
    return {MetricType::Gauge, szName, szHelp, "", {{"", static_cast<double>(value)}}};
}

Metric counter(const char* szName, const char* szHelp, uint64_t value)
{
    return {MetricType::Counter, szName, szHelp, "", {{"", static_cast<double>(value)}}};
}

Metric counters(const char* szName, const char* szHelp, const char* szLabel,
                const std::vector<std::pair<const char*, uint64_t>>& values)
{
    Metric metric{MetricType::Counter, szName, szHelp, szLabel, {}};
    for (const auto& [szValue, count] : values) {
        metric.values.emplace_back(szValue, static_cast<double>(count));
    }
    return metric;
}

prometheus::MetricFamily familyOf(const Metric& metric)
{
    prometheus::MetricFamily family{metric.szName, metric.szHelp, metric.type, {}};
    for (const auto& [szValue, number] : metric.values) {
        prometheus::ClientMetric& value = family.metric.emplace_back();
        if (*metric.szLabel != '\0') {
            value.label = {{metric.szLabel, szValue}};
        }
        (metric.type == MetricType::Counter ? value.counter.value : value.gauge.value) = number;
    }
    return family;
}

// Returns how many bytes of memory the process occupies, 0 when the system does not say it.
uint64_t residentBytes()
{
    uint64_t all = 0, resident = 0;  // in pages
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

std::vector<Metric> metricsOf(const ServerState& server)
{
    const HandlerPool::Use pool = server.handlers.use();
    const ReadAnswers::Counts reads = server.readAnswers.counts();
    const Connections::Counts connections = server.connections.counts();
    return {
        gauge("zemhost_handlers_busy", "Handlers that run a request.", pool.running),
        gauge("zemhost_handlers", "Handlers.", pool.workers),
        gauge("zemhost_queue_requests", "Requests that wait for a handler.", pool.waiting),
        gauge("zemhost_queue_places", "Places of the queue in which requests wait.", pool.slots),
        counters("zemhost_reads_total", "Answers of methods that only read, by where they came from.", "source",
                 {{"cache", reads.kept},
                  {"method", reads.called},
                  {"other_request", reads.shared},
                  {"client", reads.notModified}}),
        gauge("zemhost_answer_cache_bytes", "Memory of the kept answers.", reads.keptBytes),
        gauge("zemhost_answer_cache_limit_bytes", "Memory that kept answers may take.", reads.maxKeptBytes),
        gauge("zemhost_connections", "Open connections to the main address.", connections.open),
        gauge("zemhost_connections_limit", "Connections to the main address that the server keeps.", connections.limit),
        counter("zemhost_connections_opened_total", "Connections to the main address.", connections.opened),
        counters("zemhost_connections_ended_total", "Connections that the server ended before their time.", "reason",
                 {{"limit", connections.overLimit}, {"slow", connections.slow}, {"memory", connections.forMemory}}),
        gauge("zemhost_store_up", "1 when the store answered the last probe.", store::isStoreAnswering()),
        counter("zemhost_store_outages_total", "How often the store stopped answering.", store::outageCount()),
        counter("zemhost_store_transactions_repeated_total", "Transactions that the database gave up.",
                store::repeatedTransactionCount()),
        gauge("zemhost_memory_bytes", "Memory that the bound on memory counts.", usedMemory()),
        gauge("zemhost_memory_limit_bytes", "The bound on memory.", memoryLimit()),
        gauge("process_resident_memory_bytes", "Memory that the process occupies.", residentBytes()),
    };
}

}  // namespace

Answer metricsAnswer(const ServerState& server)
{
    auto families = server.requestMetrics.collect();
    for (const Metric& metric : metricsOf(server)) {
        families.push_back(familyOf(metric));
    }
    return {.text = makeText({prometheus::TextSerializer().Serialize(families)}),
            .succeeded = true,
            .szType = "text/plain; version=0.0.4; charset=utf-8"};
}

}  // namespace host
