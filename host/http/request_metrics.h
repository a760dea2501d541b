// Counts requests and the time that they take.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/histogram.h>

#include "host/http/request_head.h"

namespace host {

// Counts by the API and method that a request names. What clients may choose freely gives no series of its own: all
// files of the page are the API "page", and all unknown paths and methods the API "other". Any thread may use the
// object.
class RequestMetrics {
public:
    // Counts a request that is over. spent: since the arrival of its head. code: as in the request's line of the log.
    // Without memory for a new series, the request is not counted.
    void count(const RequestHead& head, std::chrono::steady_clock::duration spent, const std::string& code) noexcept;

    // Returns the counts. Throws std::bad_alloc.
    std::vector<prometheus::MetricFamily> collect() const;

private:
    using Name = std::pair<std::string_view, std::string_view>;  // API and method, which live as long as the process

    // The counts of one API and method. The families own them.
    struct Series {
        prometheus::Histogram* pSeconds;
        std::map<std::string, prometheus::Counter*> byCode{};
    };

    static Name nameOf(const RequestHead& head);
    Series& seriesOf(const Name& name);
    prometheus::Counter& counterOf(const Name& name, Series& series, const std::string& code);

    mutable std::mutex m_mutex;  // guards the members below
    prometheus::Family<prometheus::Counter> m_requests{
        "zemhost_requests_total", "Requests, by the code of the log.", {}};
    prometheus::Family<prometheus::Histogram> m_seconds{
        "zemhost_request_duration_seconds", "Time from the head of a request to its answer.", {}};
    std::map<Name, Series> m_series;
};

}  // namespace host
