#!/usr/bin/env python3
"""Tests that a client which asks again gets the same answer cheaply, and the new one as soon as something changed.

usage: tests/http_cache_test.py BUILD_DIR [option of unittest or HttpCacheTest.test_...]
"""
import contextlib
import gzip
import json
import pathlib
import re
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True  # no cache beside the sources
ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))
from zemhost import SAMPLE, Server, Store, send  # noqa: E402

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
TREE = "/webapi/VELQ.ZEM.Tree/1/get"
SET = "/webapi/VELQ.ZEM.KXGroup/1/set"
PROBE = "/webapi/Probe/1/get"

# A method that counts its calls in the file "calls" and answers what the file "text" held at the start of the call. It
# waits while there is a file "hold", and fails when there is a file "fail". Once it has answered, it stays while there
# is a file "stay", and changes its answer to an error when there is a file "regret".
PROBE_SOURCE = r"""
#include <fstream>
#include <iterator>
#include <unistd.h>
#include "platform/velq_webapi.h"
static void get(VELQ::APIRequest*, VELQ::APIResponse* resp) {
    std::ifstream file("text");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    std::ofstream("calls", std::ios::app) << '.' << std::flush;
    while (0 == access("hold", F_OK)) { usleep(1000); }
    if (0 == access("fail", F_OK)) { throw 1; }
    resp->SetSuccess(text);
    while (0 == access("stay", F_OK)) { usleep(1000); }
    if (0 == access("regret", F_OK)) { resp->SetError(117, Json::Value()); }
}
static VELQ::APIMethod rows[] = {{"Probe", 1, "get", get}, {nullptr, 0, nullptr, nullptr}};
extern "C" VELQ::APIMethod* GetAPITable() { return rows; }
"""

# What is expected, the difference to GET of the administrator's tree, and the status. "tag" is the ETag of the tree,
# "zipped" that of the tree with gzip, "other" that of another account, "old" that of the tree before a change.
REQUESTS = [
    ("GET answers as POST does", {}, 200),
    ("POST answers as ever, whatever the client has", {"method": "POST", "body": b"", "known": "{tag}"}, 200),
    ("HEAD has the length, and no body", {"method": "HEAD"}, 200),
    ("GET of what the client has", {"known": "{tag}"}, 304),
    ("a list of tags, as a proxy weakens them", {"known": '"x", W/{tag} ,"y"'}, 304),
    ("the tag of the coding that is asked for", {"known": "{zipped}", "coding": "gzip"}, 304),
    ("the tag of another coding", {"known": "{tag}", "coding": "gzip"}, 200),
    ("the tag of another account", {"known": "{other}"}, 200),
    ("the tag of an earlier state", {"known": "{old}"}, 200),
    ("GET with a body is refused", {"body": b"{}"}, 400),
    ("GET with a chunked body is refused", {"body": iter([b"{}"])}, 400),
    ("GET with a query is refused", {"path": TREE + "?id=3"}, 400),
    ("GET without a token is refused", {"token": None, "known": "{tag}"}, 401),
    ("GET of what writes is refused", {"path": SET}, 405),
    ("DELETE of what reads is refused", {"method": "DELETE"}, 405),
]

# MiB for kept answers, the bodies that are asked for in turn, each answered with 300 KB, and the calls that it takes.
KEPT = [("1", "abcabc", 3), ("1", "abcadcab", 5), ("0", "aaa", 3), ("64", "abcdeabcde", 5)]

# The accepted codings, the coding of the answer, and the first bytes of its text.
CODINGS = [("gzip, zstd", "zstd", b"\x28\xb5\x2f\xfd"), ("zstd;q=0.5, gzip", "gzip", b"\x1f\x8b"),
           ("br", None, b'{"success":true'), ("gzip;q=0", None, b'{"success":true')]


class HttpCacheTest(unittest.TestCase):
    """Each test has its own store. Requests are the administrator's unless they say otherwise."""

    def setUp(self):
        self.store = Store(BUILD, self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
        self.store.fill()
        self.token, self.user = self.store.token("admin"), self.store.token("m.okafor")

    def serve(self, *arguments):
        self.server = Server(self.store, "--no-console", *arguments)
        self.addCleanup(self.server.stop)
        return self.server

    def serve_probe(self, text, *arguments):
        """Serves the probe, which answers the text."""
        self.write(PROBE_SOURCE, "probe.cpp")
        self.write(text)
        flags = subprocess.check_output(["pkg-config", "--cflags", "--libs", "jsoncpp"], text=True).split()
        subprocess.run(["c++", "-std=c++20", "-shared", "-fPIC", "-I", ROOT, "probe.cpp", *flags, "-o", "probe.so"],
                       cwd=self.store.folder, check=True, timeout=120)
        self.serve("--module", "probe.so", *arguments)

    def write(self, text, name="text"):
        (self.store.folder / name).write_text(text, encoding="utf-8")

    def calls(self, awaited=0):
        """Returns how often the probe was called, as soon as it was called that often."""
        path, limit = self.store.folder / "calls", time.monotonic() + 20
        while awaited > (calls := path.stat().st_size if path.exists() else 0):
            self.assertLess(time.monotonic(), limit)
            time.sleep(0.01)
        return calls

    def send(self, path=TREE, known=None, coding=None, token="", body=None, method="GET", server=None):
        connection = (server or self.server).connect()
        self.addCleanup(connection.close)
        headers = {"If-None-Match": known, "Accept-Encoding": coding or "identity"}
        send(connection, path, self.token if token == "" else token, body, method,
             {name: value for name, value in headers.items() if value})
        return connection

    def receive(self, connection):
        answer = connection.getresponse()
        answer.tag, answer.text = answer.headers["ETag"], answer.read()
        return answer

    def get(self, *arguments, **options):
        return self.receive(self.send(*arguments, **options))

    def probe(self, *arguments, **options):
        return json.loads(self.get(PROBE, *arguments, **options).text)["data"]

    def change(self, desc, **options):
        params = json.dumps({"node_id": 3, "desc": desc, **options})
        self.assertIn(b'{"success":true', self.get(SET, body=params, method="POST").text)

    def test_requests_are_answered_by_method_and_tag(self):
        self.serve()
        old = self.get().tag
        self.change("x")
        first, zipped = self.get(), self.get(coding="gzip")
        tags = {"tag": first.tag, "zipped": zipped.tag, "other": self.get(token=self.user).tag, "old": old}
        self.assertEqual((len({*tags.values()}), gzip.decompress(zipped.text)), (4, first.text))
        for expectation, difference, status in REQUESTS:
            with self.subTest(expectation):
                known = difference.get("known", "").format(**tags)
                answer = self.get(**{**difference, "known": known})
                headers = answer.headers
                self.assertEqual((answer.status, headers["Cache-Control"], headers["Vary"]),
                                 (status, "no-store", "Accept-Encoding"))
                allowed = "POST" if difference.get("path") == SET else "GET, HEAD, POST"
                self.assertEqual(headers["Allow"], allowed if status == 405 else None)
                if status == 200:
                    expected = zipped if "coding" in difference else first
                    self.assertEqual((answer.tag, int(headers["Content-Length"])), (expected.tag, len(expected.text)))
                    self.assertEqual(answer.text, b"" if difference.get("method") == "HEAD" else expected.text)
                elif status == 304:
                    self.assertEqual((answer.text, answer.tag in known), (b"", True))
        self.server.stop()  # which writes the log to its end
        self.assertRegex(self.store.log.read_text(), r"(?m)Z admin VELQ\.ZEM\.Tree get 304 \d+$")

    def test_answers_are_compressed_for_clients_that_accept_it(self):
        self.serve()
        for accepted, coding, start in CODINGS:
            for method in "GET", "POST":
                answer = self.get(coding=accepted, body=b"", method=method)
                self.assertEqual((answer.headers["Content-Encoding"], answer.text.startswith(start)), (coding, True))
        self.assertTrue(self.get(SET, coding="gzip", body=b"{}", method="POST").text.startswith(b"{"))  # is short

    def test_change_shows_at_once_whatever_its_way(self):
        second, first = self.serve(), self.serve()

        def apply(desc):
            self.write(re.sub(r'(?<="desc": )"Public site[^"]*"', f'"{desc}"', SAMPLE.read_text(encoding="utf-8")))
            self.store.run("apply", "text")

        def write_sql(desc):
            with contextlib.closing(sqlite3.connect(self.store.path)) as database, database:
                database.execute("UPDATE ou SET \"desc\" = ? WHERE id = 3", [desc])

        def delegate(desc):
            self.change(desc, delegate=[])
        for number, way in enumerate([self.change, apply, write_sql, delegate, apply]):
            desc = f"change {number}"
            tags = {(server, token): self.get(server=server, token=token).tag
                    for server in (first, second) for token in (self.token, self.user)}
            for (server, token), tag in tags.items():
                self.assertEqual(self.get(server=server, token=token, known=tag).status, 304)
            way(desc)
            for (server, token), tag in tags.items():
                sees = token == self.token or way != delegate
                text = self.get(server=server, token=token, known=tag).text.decode()
                self.assertEqual((f'"{desc}"' in text, '"Headquarters"' in text), (sees, token == self.token), desc)
        self.store.run("revoke", "m.okafor")
        self.assertEqual([self.get(token=self.user, known=known).status for known in (tag, None)], [401, 401])

    def test_kept_answers_have_a_bound_and_the_least_recent_goes(self):
        for mib, asked, calls in KEPT:
            self.serve_probe("x" * 300_000, "--keep-answers", mib)
            before = self.calls()
            for name in asked:
                self.assertEqual(len(self.probe(body=f'{{"{name}":1}}', method="POST")), 300_000)
            self.assertEqual((asked, self.calls() - before), (asked, calls))
        self.serve_probe("x" * 1_100_000, "--keep-answers", "1")
        for coding, more in [("gzip", 1), ("gzip", 0), (None, 1), (None, 1)]:  # only the compressed text is kept
            before = self.calls()
            self.get(PROBE, coding=coding)
            self.assertEqual(self.calls(), before + more)

    def test_requests_at_once_share_a_call_that_succeeds(self):
        self.serve_probe("x" * 3_000_000, "--keep-answers", "1")  # not kept
        for fails, status, calls, texts in [(False, 200, 1, 3), (True, 500, 12, 1)]:
            self.change(f"fails: {fails}")
            before = self.calls()
            self.write("", "hold")
            clients = [self.send(PROBE, coding=coding) for _ in range(4) for coding in (None, "gzip", "zstd")]
            self.calls(before + 1)
            time.sleep(0.5)
            self.assertEqual(self.calls(), before + 1)
            if fails:
                self.write("", "fail")
            (self.store.folder / "hold").unlink()
            answers = [self.receive(client) for client in clients]
            self.assertEqual({answer.status for answer in answers}, {status})
            self.assertEqual((self.calls() - before, len({answer.text for answer in answers})), (calls, texts))
        counts = self.get("/metrics").text
        self.assertIn(b'zemhost_reads_total{source="method"} 13\n', counts)
        self.assertIn(b'zemhost_reads_total{source="other_request"} 11\n', counts)

    def test_success_is_sent_before_its_handler_ends(self):
        self.serve_probe("text")
        self.write("", "stay")
        answer = self.get(PROBE, coding="gzip")
        self.assertEqual((b'"text"' in answer.text, self.probe(), self.calls()), (True, "text", 1))
        self.assertEqual((self.get(PROBE, known=answer.tag, coding="gzip").status, self.calls()), (304, 1))
        self.write("", "regret")
        self.server.process.terminate()
        time.sleep(0.3)
        (self.store.folder / "stay").unlink()
        self.server.stop()  # waits for the handler, and then closes the store
        self.assertIn("its success was sent before", self.store.log.read_text())
        self.assertEqual(list(self.store.folder.glob("zem.db-*")), [])

    def test_answer_that_a_change_overtakes_is_neither_kept_nor_shared(self):
        self.serve_probe("old")
        self.write("", "hold")
        early = self.send(PROBE)
        self.calls(1)
        self.write("new")
        self.change("x")
        late = self.send(PROBE)
        self.calls(2)
        (self.store.folder / "hold").unlink()
        early, late = self.receive(early), self.receive(late)
        self.assertEqual((early.tag, b"old" in early.text), (None, True))
        self.assertEqual((b"new" in late.text, self.probe()), (True, "new"))

    def test_slow_readers_share_one_text_beside_a_change(self):
        def memory():
            status = pathlib.Path(f"/proc/{self.server.process.pid}/status").read_text()
            return int(re.search(r"VmRSS:\s+(\d+)", status)[1]) >> 10  # MiB
        self.serve_probe("old" + "x" * 30_000_000)  # more than the sockets take
        expected, before = self.get(PROBE).text, memory()
        clients = [self.send(PROBE) for _ in range(8)]
        time.sleep(0.5)
        self.assertLess(memory() - before, 60)
        self.write("new")
        self.change("x")
        self.assertEqual((self.probe(), self.calls()), ("new", 2))
        self.assertEqual({self.receive(client).text for client in clients}, {expected})


if __name__ == "__main__":
    unittest.main()
