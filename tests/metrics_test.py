#!/usr/bin/python3
"""Compares /metrics with the requests that were sent and with the log. Debian's own Python runs it, because Debian
packages the parser of metrics for it.

usage: tests/metrics_test.py BUILD_DIR [option of unittest or MetricsTest.test_...]
"""
import collections
import contextlib
import http.client
import json
import os
import pathlib
import re
import socket
import sqlite3
import sys
import tempfile
import time
import unittest

from prometheus_client.parser import text_string_to_metric_families

sys.dont_write_bytecode = True  # no cache beside the sources
ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))
from zemhost import Server, Store, send  # noqa: E402

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
TREE, SET = "/webapi/VELQ.ZEM.Tree/1/get", "/webapi/VELQ.ZEM.KXGroup/1/set"
TYPE = "text/plain; version=0.0.4; charset=utf-8"

# Requests by the administrator unless they name another token, and the labels with which each is counted.
REQUESTS = [
    ({"path": TREE}, ("VELQ.ZEM.Tree", "get", "0")),
    ({"path": TREE, "method": "POST"}, ("VELQ.ZEM.Tree", "get", "0")),
    ({"path": TREE, "method": "DELETE"}, ("VELQ.ZEM.Tree", "get", "405")),
    ({"path": TREE, "who": None}, ("VELQ.ZEM.Tree", "get", "401")),
    ({"path": TREE, "who": "nobody"}, ("VELQ.ZEM.Tree", "get", "401")),
    ({"path": SET, "method": "POST", "body": {"node_id": 3, "desc": "x"}}, ("VELQ.ZEM.KXGroup", "set", "0")),
    ({"path": SET, "method": "POST", "body": {"node_id": "x"}}, ("VELQ.ZEM.KXGroup", "set", "101")),
    ({"path": SET, "method": "POST", "body": []}, ("VELQ.ZEM.KXGroup", "set", "400")),
    ({"path": SET, "method": "POST", "body": "x" * (5 << 20)}, ("VELQ.ZEM.KXGroup", "set", "413")),
    ({"path": "/session"}, ("/session", "", "0")),
    ({"path": "/health"}, ("/health", "", "0")),
    ({"path": "/health", "method": "PUT"}, ("/health", "", "405")),
    ({"path": "/"}, ("page", "", "200")),
    ({"path": "/icon.svg"}, ("page", "", "200")),
    ({"path": "/no/such/path"}, ("other", "", "404")),
    ({"path": TREE + "x"}, ("other", "", "404")),
    ({"path": "/webapi/Any.Name/1/any", "who": None}, ("other", "", "404")),
    ({"path": "/metrics", "who": None}, ("/metrics", "", "401")),
    ({"path": "/metrics", "who": "m.okafor"}, ("/metrics", "", "403")),
]

# The address, path and method of a request, who sends it, and the status of the answer.
ACCESS = [
    ("main", "/metrics", "GET", "admin", 200), ("main", "/metrics", "HEAD", "admin", 200),
    ("main", "/metrics", "GET", None, 401), ("main", "/metrics", "GET", "nobody", 401),
    ("main", "/metrics", "GET", "m.okafor", 403), ("main", "/metrics", "POST", "admin", 405),
    ("main", "/metrics?x=1", "GET", "admin", 400), ("main", "/metrics/", "GET", "admin", 404),
    ("own", "/metrics", "GET", None, 200), ("own", "/metrics", "HEAD", None, 200), ("own", "/health", "GET", None, 200),
    ("own", "/metrics", "POST", None, 405), ("own", "/", "GET", None, 404), ("own", "/session", "GET", "admin", 404),
    ("own", TREE, "GET", "admin", 404), ("own", "/metricsx", "GET", "admin", 404),
]


class MetricsTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.store = Store(BUILD, self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
        self.store.fill()
        self.tokens = {"admin": self.store.token("admin"), "m.okafor": self.store.token("m.okafor"), None: None,
                       "nobody": "0" * 64}

    def serve(self, *arguments, **options):
        self.server = Server(self.store, "--metrics", "127.0.0.1:0", *arguments, **options)
        self.addCleanup(self.server.stop)
        self.own_port = int(re.fullmatch(r"metrics on http://127.0.0.1:(\d+)/metrics\n",
                                         self.server.process.stdout.readline())[1])

    def send(self, path, method="GET", who="admin", body=None, headers=(), port=None):
        connection = http.client.HTTPConnection("127.0.0.1", port or self.server.port, timeout=30)
        self.addCleanup(connection.close)
        send(connection, path, self.tokens[who], None if body is None else json.dumps(body), method, headers)
        return connection

    def get(self, *arguments, **options):
        connection = self.send(*arguments, **options)
        answer = connection.getresponse()
        answer.text = answer.read()
        connection.close()
        return answer

    def scrape(self, port=None, **options):
        """Returns the value of each sample, by its name, or by its name and the values of its labels."""
        answer = self.get("/metrics", port=port or self.own_port, **options)
        self.assertEqual((answer.status, answer.headers["Content-Type"]), (200, TYPE))
        self.families = list(text_string_to_metric_families(answer.text.decode()))
        return {(sample.name, *sample.labels.values()) if sample.labels else sample.name: sample.value
                for family in self.families for sample in family.samples}

    def requests(self):
        """Returns how often each API, method and code was counted."""
        self.scrape()
        family = next(family for family in self.families if family.name == "zemhost_requests")
        return collections.Counter({tuple(sample.labels.get(name, "") for name in ("api", "method", "code")): sample.value
                                    for sample in family.samples})

    def await_values(self, **expected):
        """Waits until the samples have these values."""
        limit = time.monotonic() + 20
        while (values := {name: value for name, value in self.scrape().items() if name in expected}) != expected:
            self.assertLess(time.monotonic(), limit, values)
            time.sleep(0.05)

    def test_requests_are_counted_as_they_were_sent_and_logged(self):
        self.serve()
        expected = collections.Counter()
        for request, labels in REQUESTS:
            with contextlib.suppress(BrokenPipeError, ConnectionResetError):  # refused before the body was sent
                self.get(**request)
            expected[labels] += 1
        cut = socket.create_connection(("127.0.0.1", self.server.port))
        cut.sendall(f"POST {SET} HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer {self.tokens['admin']}\r\n"
                    "Content-Length: 9\r\n\r\n{".encode())
        cut.close()
        expected["VELQ.ZEM.KXGroup", "set", "cut"] += 1
        limit = time.monotonic() + 20
        while not (counted := self.requests())["VELQ.ZEM.KXGroup", "set", "cut"] and time.monotonic() < limit:
            time.sleep(0.05)
        counted.pop(("/metrics", "", "0"), None)  # the scrapes, of the other address
        self.assertEqual(sorted(counted.items()), sorted(expected.items()))

        logged = collections.Counter()
        lines = []
        while len(lines) < expected.total() - 1 and time.monotonic() < limit:  # a thread writes the log
            time.sleep(0.05)
            lines = re.findall(r"^\S+ (?!change:|module:|zemhost:)\S+ (\S+) (\S+) (\S+) \d+$",
                               self.store.log.read_text(), re.M)
        for line in lines:
            api, method, code = ("" if field == "-" else field for field in line)
            known = api.startswith("VELQ.") and code != "404" or api in ("/session", "/health", "/metrics")
            logged[(api, method, code) if known else ("page" if code == "200" else "other", "", code)] += 1
        del expected["/health", "", "0"]  # the log leaves it out
        self.assertEqual(sorted(logged.items()), sorted(expected.items()))

    def test_each_request_is_in_one_bucket_of_its_time(self):
        self.serve()
        for _ in range(20):
            self.get(TREE)
        with contextlib.closing(sqlite3.connect(self.store.path, isolation_level=None)) as database:
            database.execute("BEGIN IMMEDIATE")
            waiting = self.send(SET, "POST", body={"node_id": 3, "desc": "x"})
            self.await_values(zemhost_handlers_busy=1)
            time.sleep(0.6)
        waiting.getresponse().read()
        self.scrape()
        family = next(family for family in self.families if family.type == "histogram")
        series = collections.defaultdict(list)
        for sample in family.samples:
            labels = {name: value for name, value in sample.labels.items() if name in ("api", "method")}
            series[sample.name.removeprefix(family.name), labels["api"]].append((sample.labels.get("le"), sample.value))
        for api, requests in [("VELQ.ZEM.Tree", 20), ("VELQ.ZEM.KXGroup", 1)]:
            buckets = [value for _, value in series["_bucket", api]]
            self.assertEqual((buckets[-1], buckets), (requests, sorted(buckets)))
            self.assertEqual(series["_count", api], [(None, requests)])
        slow = {float(bound): value for bound, value in series["_bucket", "VELQ.ZEM.KXGroup"]}
        self.assertEqual((slow[0.5], slow[60.0]), (0, 1))
        self.assertTrue(0.5 < series["_sum", "VELQ.ZEM.KXGroup"][0][1] < 60)

    def test_handlers_and_queue_show_what_runs_and_waits(self):
        self.serve("--connections", "1")
        self.get("/session")  # the server knows the token from here on
        with contextlib.closing(sqlite3.connect(self.store.path, isolation_level=None)) as database:
            database.execute("BEGIN IMMEDIATE")
            clients = [self.send(SET, "POST", body={"node_id": 3, "desc": str(i)}) for i in range(3)]
            self.await_values(zemhost_handlers_busy=1, zemhost_handlers=3, zemhost_queue_requests=2,
                              zemhost_queue_places=1280, zemhost_connections=3)
        for client in clients:
            self.assertIn(b'"success":true', client.getresponse().read())
            client.close()
        self.await_values(zemhost_handlers_busy=0, zemhost_queue_requests=0, zemhost_connections=0,
                          zemhost_connections_opened_total=4)

    def test_reads_are_counted_by_where_their_answers_come_from(self):
        self.serve("--memory", "64")
        def sources():
            samples = self.scrape()
            return [samples["zemhost_reads_total", source] for source in ("method", "cache", "client")]
        empty = self.scrape()
        self.assertEqual((empty["zemhost_answer_cache_bytes"], empty["zemhost_answer_cache_limit_bytes"]), (0, 16 << 20))
        self.assertEqual(empty["zemhost_memory_limit_bytes"], 64 << 20)
        first = self.get(TREE)
        kept = self.scrape()
        self.assertTrue(len(first.text) < kept["zemhost_answer_cache_bytes"] < 3 * len(first.text) + 10_000)
        self.assertGreaterEqual(kept["zemhost_memory_bytes"], kept["zemhost_answer_cache_bytes"] - 10_000)
        pages = int(pathlib.Path(f"/proc/{self.server.process.pid}/statm").read_text().split()[1])
        self.assertAlmostEqual(kept["process_resident_memory_bytes"] / (os.sysconf("SC_PAGE_SIZE") * pages), 1, delta=0.2)
        for headers, expected in [({}, [1, 1, 0]), ({"Accept-Encoding": "gzip"}, [1, 2, 0]),
                                  ({"If-None-Match": first.headers["ETag"]}, [1, 2, 1])]:
            self.get(TREE, headers=headers)
            self.assertEqual(sources(), expected, headers)
        self.get(SET, "POST", body={"node_id": 3, "desc": "changed"})
        self.get(TREE, headers={"If-None-Match": first.headers["ETag"]})
        self.get(TREE, who="m.okafor")
        self.assertEqual(sources(), [3, 2, 1])

    def test_who_may_read_them(self):
        self.serve()
        for address, path, method, who, status in ACCESS:
            with self.subTest(f"{method} {path} of the {address} address by {who}"):
                port = self.own_port if address == "own" else self.server.port
                answer = self.get(path, method, who, port=port)
                self.assertEqual(answer.status, status)
                if status == 405:
                    self.assertEqual(answer.headers["Allow"], "GET, HEAD")
        self.assertEqual({*self.scrape(self.server.port)} - {*self.scrape()}, set())
        text = self.get("/metrics").text.decode() + self.get("/metrics", port=self.own_port).text.decode()
        records = json.loads(self.store.run("export"))
        names = {record["name"] for kind in records.values() for record in kind} - {"admin"}
        self.assertEqual((len(names) > 40, [name for name in names if name in text]), (True, []))

    def test_the_two_addresses_do_not_take_connections_from_each_other(self):
        few_files = ["prlimit", "--nofile=600:600"]  # 344 connections, of which 172 of an address
        self.serve("--idle-timeout", "60", before=few_files)
        def open_connections(port, count, text):
            for _ in range(count):
                connection = self.enterContext(socket.create_connection(("127.0.0.1", port), timeout=30))
                with contextlib.suppress(ConnectionError):
                    connection.sendall(text)
        open_connections(self.own_port, 100, b"GET /metrics HTTP/1.1\r\nHost: ")
        self.await_values(zemhost_connections=0, zemhost_connections_opened_total=0)
        self.assertEqual(self.get(TREE).status, 200)
        self.await_values(zemhost_connections=0, zemhost_connections_opened_total=1)
        open_connections(self.server.port, 199, b"")
        self.await_values(zemhost_connections=172, zemhost_connections_opened_total=200)
        self.assertEqual(self.scrape()["zemhost_connections_ended_total", "limit"], 27)

    def test_the_store_is_shown_as_away(self):
        self.serve()
        away = self.store.path.with_suffix(".away")
        self.await_values(zemhost_store_up=1, zemhost_store_outages_total=0)
        self.store.path.rename(away)
        self.await_values(zemhost_store_up=0, zemhost_store_outages_total=1)
        self.assertEqual(self.get("/health", port=self.own_port).status, 503)
        away.rename(self.store.path)
        self.await_values(zemhost_store_up=1, zemhost_store_outages_total=1)


if __name__ == "__main__":
    unittest.main()
