// Counts requests and the time that they take. A series is looked up by name only once per request.
#include "host/http/request_metrics.h"

#include <exception>
#include <iterator>

namespace host {

namespace {

// Upper bounds in seconds.
const prometheus::Histogram::BucketBoundaries kBuckets{0.001, 0.005, 0.025, 0.1, 0.5, 2.5, 10, 60};

}  // namespace

RequestMetrics::Name RequestMetrics::nameOf(const RequestHead& head)
{
    switch (head.resource) {
        case Resource::method:
            return {head.pRow->szApi, head.pRow->szMethod};
        case Resource::query:
            return {head.pQuery->szPath, ""};
        case Resource::health:
            return {"/health", ""};
        case Resource::metrics:
            return {"/metrics", ""};
        case Resource::file:
            return {"page", ""};
        case Resource::none:
            break;
    }
    return {"other", ""};
}

RequestMetrics::Series& RequestMetrics::seriesOf(const Name& name)
{
    const auto found = m_series.find(name);
    if (found != m_series.end()) {
        return found->second;
    }
    const prometheus::Labels labels{{"api", std::string(name.first)}, {"method", std::string(name.second)}};
    return m_series.try_emplace(name, Series{&m_seconds.Add(labels, kBuckets)}).first->second;
}

prometheus::Counter& RequestMetrics::counterOf(const Name& name, Series& series, const std::string& code)
{
    const auto found = series.byCode.find(code);
    if (found != series.byCode.end()) {
        return *found->second;
    }
    auto& counter =
        m_requests.Add({{"api", std::string(name.first)}, {"method", std::string(name.second)}, {"code", code}});
    series.byCode.emplace(code, &counter);
    return counter;
}

void RequestMetrics::count(const RequestHead& head, std::chrono::steady_clock::duration spent,
                           const std::string& code) noexcept
try {
    const Name name = nameOf(head);
    const std::lock_guard lock(m_mutex);
    Series& series = seriesOf(name);
    counterOf(name, series, code).Increment();
    series.pSeconds->Observe(std::chrono::duration<double>(spent).count());
} catch (const std::exception&) {
    return;  // no memory for the series
}

std::vector<prometheus::MetricFamily> RequestMetrics::collect() const
{
    const std::lock_guard lock(m_mutex);
    auto families = m_requests.Collect();
    auto seconds = m_seconds.Collect();
    std::move(seconds.begin(), seconds.end(), std::back_inserter(families));
    return families;
}

}  // namespace host
