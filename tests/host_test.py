#!/usr/bin/env python3
"""Tests zemhost as a process, with the modules that were built, a store in a temporary folder and requests over HTTP.

usage: tests/host_test.py BUILD_DIR [option of unittest or HostTest.test_...]
"""
import contextlib
import fcntl
import itertools
import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest
from multiprocessing.connection import wait
from urllib.parse import quote

sys.dont_write_bytecode = True  # no cache beside the sources
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from zemhost import SAMPLE, Server, Store, receive, request, send  # noqa: E402

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
MODULE = BUILD / "webapi_zem_ou.so"
MODULES = [BUILD / f"webapi_zem_{name}.so" for name in ("ou", "gpo", "kx")]
TREE = "/webapi/VELQ.ZEM.Tree/1/get"
CREATE = "/webapi/VELQ.ZEM.KXGroup/1/create"
DATA = pathlib.Path(__file__).resolve().parent / "data"
FLEET = SAMPLE.read_text(encoding="utf-8")
HUGE = b" " * (100 << 20)

# What is expected, the HTTP status of the refusal, and the difference to a valid request for the tree.
REFUSALS = [
    ("a request without a token is refused", 401, {"token": None}),
    ("an empty token is refused", 401, {"token": ""}),
    ("an unknown token is refused", 401, {"token": "0" * 64}),
    ("the sender of a huge body is told that the token is unknown", 401, {"token": "x", "body": HUGE}),
    ("a client that waits for 100 Continue is refused before it sends a huge body", 413,
     {"body": None, "headers": {"Expect": "100-continue", "Content-Length": len(HUGE)}}),
    ("a body over the limit is refused, and its sender gets the answer", 413, {"body": HUGE}),
    ("a chunked body over the limit is refused", 413, {"body": (HUGE[:65536] for _ in range(1600))}),
    ("incomplete JSON is refused", 400, {"body": '{"name":'}),
    ("text after the JSON object is refused", 400, {"body": "{}{}"}),
    ("an array as parameters is refused", 400, {"body": "[]"}),
    ("a repeated name is refused", 400, {"body": '{"name":"a","name":"b"}'}),
    ("text that is not UTF-8 is refused", 400, {"body": b'{"name":"\xc0\xaf"}'}),
    ("deep nesting is refused", 400, {"body": '{"a":' + "[" * 100000 + "]" * 100000 + "}"}),
    ("a compressed body is refused", 400, {"body": "{}", "headers": {"Content-Encoding": "gzip"}}),
    ("DELETE of a method is refused", 405, {"method": "DELETE"}),
    ("an unknown method is not found, whatever the token and the HTTP method", 404,
     {"path": "/webapi/VELQ.ZEM.Tree/1/drop", "token": None, "method": "GET"}),
    ("an unknown version is not found", 404, {"path": "/webapi/VELQ.ZEM.Tree/2/get"}),
    ("a version with a sign is not found", 404, {"path": "/webapi/VELQ.ZEM.Tree/+1/get"}),
    ("a version with a leading zero is not found", 404, {"path": "/webapi/VELQ.ZEM.Tree/01/get"}),
    ("a version of more than 64 bits is not found", 404, {"path": "/webapi/VELQ.ZEM.Tree/18446744073709551617/get"}),
    ("a method with an escaped name is not found", 404, {"path": "/webapi/VELQ.ZEM.Tree/1/%67et"}),
    ("a long path is not found", 404, {"path": "/webapi/" + "x" * 10000 + "/1/get"}),
    ("an exception of a handler is answered with 500", 500, {"path": "/webapi/Test/1/run"}),
]

# The reason of a refusal and a part of its message, by status.
CAUSES = {400: ("malformed", "JSON"), 401: ("unknown_token", "token"), 404: ("no_such_method", "no such method"),
          405: ("no_such_method", "takes only GET, HEAD, POST"), 413: ("too_long", "4 MiB"), 500: ("failed", "failed")}

# What is expected, a request of the delegate m.okafor, its error code, reason and member, and a part of its message.
# After the first row, which the store refuses, a cause that is not forgotten would show in the rows after it.
IGNORED = [
    ("known names are not listed", "set", {"node_id": 3, "desc": "x", "mtime": 1}, None),
    ("a misspelled parameter is listed", "set", {"node_id": 3, "nmae": 'x'}, ["nmae"]),
    ("so is a misspelled member of a record, once", "set",
     {"multiple_data": [{"id": 3, "desc": "y"}, {"id": 3, 'Na"me\n': 1}, {"id": 3, 'Na"me\n': 2}]}, ['Na"me\\u000a']),
    ("a revision that protects nothing is listed", "set", {"node_id": 3, "name": "x", "revision": 1}, ["revision"]),
    ("one in a record is not", "set", {"multiple_data": [{"id": 3, "name": "Plants", "revision": None}]}, None),
    ("no more than ten are listed", "set", {"node_id": 3, **{f"x{i}": 0 for i in range(10, 99)}},
     [f"x{i}" for i in range(10, 20)]),
]
REASONS = [
    ("a refusal of the store says why", "create", {"id": 0, "name": "Web staging", "parent_id": 3}, 117,
     "duplicate", "name", "of that name"),
    ("a record that is not an object is refused by the store", "create", {"multiple_data": [None]}, 117,
     "malformed", None, "record: not an object"),
    ("a refusal does not repeat the reason of an earlier request", "delete", {"node_id": 0}, 101,
     "malformed", None, "root"),
    ("a refusal of the module has the text for its code", "set", {"node_id": "3"}, 101,
     "malformed", None, "parameter"),
    ("a refusal of records names them", "create", {"multiple_data": {}}, 117, "malformed", "multiple_data", "not an array"),
    ("a refusal of the module names the parameter that is missing", "create", {"name": "x", "parent_id": 3}, 117,
     "missing", "id", "id: missing"),
    ("so does one of another parameter", "create", {"id": 0, "name": "x"}, 117, "missing", "parent_id", "parent_id: missing"),
    ("a refusal with code 101 names it, too", "delete", {}, 101, "missing", "node_id", "node_id: missing"),
    ("a refusal names the record without an identifier", "set", {"multiple_data": [{"id": 3}, {"name": "x"}]}, 117,
     "missing", "multiple_data[1].id", "missing"),
    ("a lack of the right comes first", "set", {"name": "x"}, 414, "not_permitted", None, "group 0"),
    ("too many identifiers are refused", "delete", {"node_id": [0] * 10001}, 413, "too_many", "node_id", "10000"),
    ("10,000 reach the method", "delete", {"node_id": [0] * 10000}, 101, "malformed", None, "root"),
    ("20,000 records reach the method", "set", {"multiple_data": [{}] * 20000}, 117, "missing",
     "multiple_data[0].id", "missing"),
    ("too many links of a record are refused", "set", {"multiple_data": [{"linked_gpo": {"order": [1] * 10001}}]}, 413,
     "too_many", "order", "10000"),
    ("a move to another's group is refused", "set", {"node_id": 3, "parent_id": 6}, 117,
     "not_permitted", "parent_id", "parent_id: group 6 is not yours"),
    ("a group that is not there is refused like another's group", "set", {"node_id": 3, "parent_id": 77}, 117,
     "not_permitted", "parent_id", "parent_id: group 77 is not yours"),
    ("a refusal names the group that is not the caller's", "set", {"node_id": 6, "name": "x"}, 414,
     "not_permitted", None, "group 6 is not yours"),
    ("a name with a quote and a line end is escaped in the message", "create",
     {"id": 0, "name": "b", "parent_id": "ODD"}, 117, "duplicate", "name", r'"\u000a'),
]

# What is expected, the path of a query, the account, and the names of the accounts that it finds, or the error code.
QUERIES = [
    ("a part of the name finds accounts, whatever the case", "/accounts?q=OKA", "admin", ["m.okafor"]),
    ("the beginning of a uid finds accounts, in the order of names", "/accounts?q=100", "m.okafor", "100"),
    ("a pattern is searched as it is", "/accounts?q=%25", "admin", []),
    ("without a text, all are found", "/accounts", "admin", ""),
    ("who manages nothing finds none", "/accounts?q=a", "idle", 403),
    ("an unknown parameter is refused", "/accounts?name=a", "admin", 400),
    ("a repeated parameter is refused", "/accounts?q=a&q=b", "admin", 400),
    ("a text that is not UTF-8 is refused", "/accounts?q=%ff", "admin", 400),
    ("a text with a NUL is refused", "/accounts?q=a%00", "admin", 400),
    ("a history of a wrong node is refused", "/history?node=tree:1", "admin", 400),
    ("a history of a wrong page is refused", "/history?before=1", "admin", 400),
    ("a history of a group of others is refused", "/history?node=group:0", "m.okafor", 403),
    ("a history of everything is the administrators'", "/history", "m.okafor", 403),
    ("a session has no parameters", "/session?q=a", "admin", 400),
]

# The fault of a fleet file, a text of the sample and its replacement, and a part of the message that refuses the file.
BROKEN_FLEETS = [
    ("a parent that is not there", '"id": 12, "parent_id": 0', '"id": 12, "parent_id": 99', "groups[11]"),
    ("a repeated name in an object", '"admin": true', '"admin": true, "admin": false', "admin"),
    ("a key with control characters for the terminal", '"address":', r'"\u001b[2J":', r"servers[0].\u001b[2J"),
    ("a text that ends in the middle", FLEET[len(FLEET) // 2:], "", "Line "),
    ("an empty file", FLEET, "", "empty"),
    ("nesting that is too deep", FLEET, "[" * 5000 + "]" * 5000, "too deep"),
]

# A part of a line in the exported sample, the replacement of that part (None: the line is deleted), and the line of the
# plan that is expected.
EDITS = [
    ('"Headquarters"', '"Head office"', '~ group 1 Headquarters: name Headquarters -> "Head office"'),
    ('"delegate": [{"ugid":1001,"user_type":2},{"ugid":1002,', '"delegate": [{"ugid":1002,',
     "~ group 11 Warehouses: delegate 1001,1002 -> 1002"),
    ('"Early updates"', '"Updates\\n- policy 8"', r'~ policy 8 "Early updates": name "Early updates" -> "Updates\n- policy 8"'),
    ('"hq-print1', None, "- server 15 hq-print1.brackwater.example"),
    ('"uid": 1003', None, "- account 1003 p.duarte"),
    ('  {"id": 30,', '  {"id": 31, "parent_id": 4, "name": "new1"},\n  {"id": 30,', "+ server 31 new1"),
]

# The fault of a command, the command, its exit status, and a part of its message.
REFUSED_COMMANDS = [
    ("an account that is not there", "tree --as nobody", 1, 'no account "nobody"'),
    ("a method that is not there", "call --as admin VELQ.ZEM.Tree drop", 1, "no module offers"),
    ("parameters of another type", "call --as admin VELQ.ZEM.Tree get --params []", 1, "not a JSON object"),
    ("a method that answers with an error",
     'call --as admin VELQ.ZEM.KXGroup delete --params {"node_id":0}', 1, '"code":101'),
    ("a policy that is not there", "link add group 12 99", 1, "not changed"),
    ("a group that is not there", "link add group Headquarters/none 1", 1, 'no group "Headquarters/none"'),
    ("a name of no policy", "link add group 12 none", 1, 'no policy "none"'),
    ("a folder as the fleet file", "apply .", 1, "directory"),
    ("a fleet file as the inventory", f"import ansible {SAMPLE}", 1, 'group "accounts": not a list of names'),
    ("an address that other machines reach", "serve --listen 0.0.0.0:0", 2, "--allow-remote"),
    ("an address for metrics that other machines reach", "serve --listen 127.0.0.1:0 --metrics [::]:0", 2, "--allow-remote"),
    ("an address without a port", "serve --listen localhost", 2, "no address"),
    ("an address without a host", "serve --listen 8480", 2, "no address"),
    ("a name that has no address", "serve --listen nowhere.invalid:0", 2, "no address"),
    ("a folder of the page that is not there", "serve --listen 127.0.0.1:0 --console nowhere", 2, "nowhere"),
    ("a folder of the page without index.html", "serve --listen localhost:0 --console .", 2, "no index.html"),
    ("a module that is not there", "tree --as admin --module none.so", 1, "none.so"),
    ("a module that is no shared object", "tree --as admin --module text.so", 1, "text.so"),
    ("a module without a method table", f"tree --as admin --module {BUILD}/libvelqplatform.so", 1, "GetAPITable"),
    ("two modules with the same method", f"tree --as admin --module {MODULE} --module {MODULE}", 1, "duplicate"),
    ("a table row without a handler", "tree --as admin --module test.so", 1, "row 1"),
    ("an option before the command", "--bogus 1 tokens", 2, "before the command"),
    ("an unknown command", "tre --as admin", 2, 'no command "tre"'),
    ("no command", "", 2, "command is missing"),
    ("no account", "tree", 2, "--as"),
    ("a word too many", "tree --as admin now", 2, "now"),
    ("an inventory of another program", "import puppet x", 2, "puppet"),
    ("a kind of node that has no links", "link add policy 12 1", 2, "policy"),
    ("a text as a number", "token admin --days soon", 2, "--days"),
    ("two options that exclude each other", "serve --console . --no-console", 2, "--console"),
    ("no connection to the store", "serve --connections 0", 2, "--connections"),
    ("too many connections to the store", "serve --connections 65", 2, "--connections"),
    ("a name as a proxy", "serve --listen localhost:0 --proxy proxy.example", 2, "no address of a proxy"),
    ("a token without a lifetime", "token admin --days 0", 2, "--days"),
]

# What is expected, the HTTP method and path of a request without a token, and the status and media type of its answer.
PAGE = [
    ("/ is index.html", "GET", "/", 200, "text/html; charset=utf-8"),
    ("a script has the type that browsers run", "GET", "/tree.js", 200, "text/javascript; charset=utf-8"),
    ("a style sheet has the type that browsers apply", "GET", "/look.css", 200, "text/css; charset=utf-8"),
    ("a picture has the type that browsers draw", "GET", "/icon.svg", 200, "image/svg+xml; charset=utf-8"),
    ("a query does not change the file", "GET", "/tree.js?file=../outside.js", 200,
     "text/javascript; charset=utf-8"),
    ("HEAD gives no body", "HEAD", "/tree.js", 200, "text/javascript; charset=utf-8"),
    ("POST of a file is refused", "POST", "/tree.js", 405, "application/json"),
    ("DELETE of a file is refused", "DELETE", "/", 405, "application/json"),
    ("a path out of the folder is not found", "GET", "/../outside.js", 404, "application/json"),
    ("an escaped path out of the folder is not found", "GET", "/%2e%2e/outside.js", 404, "application/json"),
    ("a path out of the folder with escaped slashes is not found", "GET", "/..%2foutside.js", 404, "application/json"),
    ("an absolute path of the file system is not found", "GET", "//etc/hostname", 404, "application/json"),
    ("a path with two slashes is not found", "GET", "//tree.js", 404, "application/json"),
    ("a path with a NUL is not found", "GET", "/tree.js%00.html", 404, "application/json"),
    ("a file of another type is not found", "GET", "/notes.txt", 404, "application/json"),
    ("a hidden file is not found", "GET", "/.draft.js", 404, "application/json"),
    ("a file in a subfolder is not found", "GET", "/inner/tree.js", 404, "application/json"),
    ("a file that was added after the start is not found", "GET", "/late.js", 404, "application/json"),
]

SECURITY_HEADERS = {
    "Content-Security-Policy": "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src "
                               "'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
    "Referrer-Policy": "no-referrer", "X-Content-Type-Options": "nosniff", "X-Frame-Options": "DENY",
    "Cross-Origin-Resource-Policy": "same-origin",
}

# Commands that fail when there is no store.
COMMANDS_ON_A_STORE = ["tree --as admin", "list --as admin", "call VELQ.ZEM.Tree get --as admin", "link add group 1 1",
                       "tokens", "accounts", "token admin", "revoke admin", "export"]

LOG_LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ \S.*")


class HostTest(unittest.TestCase):
    """Each test has its own store. The server that serve() starts must end with status 0."""

    def setUp(self):
        self.store = Store(BUILD, self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
        self.store.fill()

    def serve(self, *arguments, account="admin"):
        """Starts the server and returns a token of the account."""
        self.server = Server(self.store, *arguments)
        self.addCleanup(self.server.stop)
        return self.store.token(account)

    def request(self, path, token, *arguments, **options):
        with contextlib.closing(self.server.connect()) as connection:
            return request(connection, path, token, *arguments, **options)

    def build_module(self, handler):
        """Compiles test.so with one method, "Test" 1 "run". handler: a C++ expression."""
        (self.store.folder / "test.cpp").write_text("""
            #include <fcntl.h>
            #include <unistd.h>
            struct Row { const char* api; long version; const char* method; void (*handler)(void*, void*); };
            static Row rows[] = {{"Test", 1, "run", %s}, {0, 0, 0, 0}};
            extern "C" Row* GetAPITable() { return rows; }""" % handler)
        subprocess.run(["c++", "-shared", "-fPIC", "-o", "test.so", "test.cpp"], cwd=self.store.folder, check=True,
                       timeout=120)

    def test_bad_requests_are_refused_and_the_next_one_is_served(self):
        self.build_module("[](void*, void*) { throw 1; }")
        token = self.serve("--module", "test.so")
        good = {"path": TREE, "token": token}
        for expectation, code, difference in REFUSALS:
            with self.subTest(expectation):
                status, answer = self.request(**{**good, **difference})
                self.assertEqual((status, answer["error"]["code"]), (code, code))
                self.assertEqual(answer["error"]["reason"], CAUSES[code][0])
                self.assertIn(CAUSES[code][1], answer["error"]["message"])
                self.assertTrue(self.request(**good)[1]["success"])
        self.server.stop()
        log = self.store.log.read_text(encoding="utf-8")
        lines = re.findall(r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ (\S+ \S+ \S+ \S+) \d+$", log, re.MULTILINE)
        self.assertCountEqual([int(line.split()[3]) for line in lines],
                              [code for _, status, _ in REFUSALS for code in (status, 0)])
        self.assertIn("admin VELQ.ZEM.Tree get 0", lines)
        self.assertIn("- VELQ.ZEM.Tree get 401", lines)
        self.assertNotIn(token, log)

    def send(self, path, token, *arguments, **options):
        """Sends a request and returns the connection without reading the answer."""
        connection = self.server.connect()
        self.addCleanup(connection.close)
        send(connection, path, token, *arguments, **options)
        return connection

    def get(self, method, path, headers=(), body=None):
        """Sends a request without a token and returns the answer, with its body as "text"."""
        with contextlib.closing(self.server.connect()) as connection:
            send(connection, path, None, body, method, headers)
            answer = connection.getresponse()
            answer.text = answer.read()
            return answer

    def serve_page(self):
        """Starts the server with a page of a few files and returns their contents by name."""
        folder = self.store.folder / "page"
        (folder / "inner").mkdir(parents=True)
        names = ["index.html", "tree.js", "look.css", "icon.svg", "notes.txt", ".draft.js", "inner/tree.js"]
        for name in [*names, "../outside.js"]:
            (folder / name).write_text(f"this is {name}")
        self.serve("--console", "page")
        (folder / "late.js").write_text("late")
        (folder / "tree.js").write_text("changed")
        return {name: f"this is {name}".encode() for name in names}

    def test_page_serves_its_files_and_nothing_else(self):
        contents = self.serve_page()
        for expectation, method, path, status, content_type in PAGE:
            with self.subTest(expectation):
                answer = self.get(method, path)
                self.assertEqual((answer.status, answer.headers["Content-Type"]), (status, content_type))
                if status == 200:
                    expected = contents[path[1:].partition("?")[0] or "index.html"]
                    self.assertEqual(answer.text, b"" if method == "HEAD" else expected)
                    self.assertEqual(int(answer.headers["Content-Length"]), len(expected))
                self.assertEqual(answer.headers["Allow"], "GET, HEAD" if status == 405 else None)
        self.assertEqual(self.get("GET", "/tree.js", body=HUGE).status, 200)
        self.server.stop()  # which writes the log to its end
        self.assertRegex(self.store.log.read_text(encoding="utf-8"), r"(?m)Z - /look\.css - 200 \d+$")

    def test_page_is_revalidated_by_its_tag_and_has_security_headers(self):
        self.serve_page()
        first = self.get("GET", "/tree.js")
        tag = first.headers["ETag"]
        for etags, status in [(tag, 304), (f'"0", W/{tag}', 304), ("*", 304), ('"0"', 200), (tag.strip('"'), 200)]:
            again = self.get("GET", "/tree.js", {"If-None-Match": etags})
            self.assertEqual((again.status, again.text), (status, b"" if status == 304 else first.text))
            self.assertEqual((again.headers["ETag"], again.headers["Cache-Control"]), (tag, "no-cache"))
        self.assertNotEqual(self.get("GET", "/look.css").headers["ETag"], tag)
        for answer in first, again, self.get("HEAD", "/"):
            self.assertEqual({name: answer.headers[name] for name in SECURITY_HEADERS}, SECURITY_HEADERS)

    def test_option_no_console_serves_no_page(self):
        token = self.serve("--no-console")
        self.assertEqual(self.get("GET", "/").status, 404)
        self.assertEqual(self.request(TREE, token)[0], 200)

    def test_slow_handlers_leave_capacity_to_other_accounts_and_shutdown_answers_all(self):
        self.build_module('[](void*, void*) { while (access("go", F_OK) != 0) usleep(1000); }')
        token = self.serve("--idle-timeout", "1", "--module", "test.so")
        other = self.store.token("m.okafor")
        for known in token, other:
            self.request(TREE, known)
        most = 4 + 512  # half of the workers, half of the queue
        clients = [self.send("/webapi/Test/1/run", token) for _ in range(most + 3)]
        limit = time.monotonic() + 30
        refused = []
        while len(refused) < 3 and time.monotonic() < limit:
            refused = wait([client.sock for client in clients], timeout=30)
        idle_until = time.monotonic() + 1.5
        while time.monotonic() < idle_until:
            self.assertTrue(self.request(TREE, other)[1]["success"])
            time.sleep(0.1)
        self.assertCountEqual(wait([client.sock for client in clients], timeout=0), refused)
        self.assertEqual({receive(client)[0] for client in clients if client.sock in refused}, {503})
        clients = [client for client in clients if client.sock and client.sock not in refused]
        for gone in clients[:2] + clients[-2:]:  # their handlers still run or wait
            gone.close()
        self.server.process.terminate()
        (self.store.folder / "go").touch()
        self.assertEqual([receive(client)[0] for client in clients[2:-2]], [200] * (most - 4))
        self.server.stop()
        log = self.store.log.read_text(encoding="utf-8")
        codes = re.findall(r" Test run (\w+) ", log)
        self.assertEqual((codes.count("503"), len(codes)), (3, most + 3))
        self.assertLessEqual(codes.count("cut"), 4)
        self.assertLessEqual(set(codes), {"0", "503", "cut"})

    def test_refusals_say_why_over_http_and_on_the_command_line(self):
        token = self.serve(account="m.okafor")
        _, answer = self.request(CREATE, token, json.dumps({"id": 0, "name": 'a"\n', "parent_id": 3}))
        odd = answer["data"]["ids"]
        self.assertTrue(self.request(CREATE, token, json.dumps({"id": 0, "name": "b", "parent_id": odd}))[1]["success"])
        for expectation, method, params, ignored in IGNORED:
            with self.subTest(expectation):
                _, answer = self.request(f"/webapi/VELQ.ZEM.KXGroup/1/{method}", token, json.dumps(params))
                self.assertEqual((answer["success"], answer.get("ignored")), (True, ignored))
        for expectation, method, params, code, reason, member, text_part in REASONS:
            with self.subTest(expectation):
                text = json.dumps(params).replace('"ODD"', str(odd))
                status, answer = self.request(f"/webapi/VELQ.ZEM.KXGroup/1/{method}", token, text)
                error = answer["error"]
                self.assertEqual((status, error["code"], error["reason"], error.get("member")),
                                 (413 if code == 413 else 200, code, reason, member))
                self.assertIn(text_part, error["message"])
                printed = self.store.run("call", "VELQ.ZEM.KXGroup", method, "--params", text, "--as", "m.okafor",
                                         status=1)
                self.assertIn(json.dumps(answer, separators=(",", ":")) + "\n", printed)

    def test_modules_work_together_in_any_order(self):
        params = '{"id":8,"target_add":[{"node_type":2,"node_id":12}]}'
        for paths in itertools.permutations(MODULES):
            modules = ["--no-default-modules", *(option for path in paths for option in ("--module", path))]
            for api, method in [("GPO", "link"), ("KXGroup", "set"), ("KX", "set"), ("Tree", "get")]:
                given = {"link": params, "set": '{"node_id":12}'}.get(method, "")
                answer = self.store.run("call", "VELQ.ZEM." + api, method, "--params", given, "--as", "admin", *modules)
                self.assertIn('{"success":true', answer)
        self.assertIn("no module offers", self.store.run(
            "call", "VELQ.ZEM.Tree", "get", "--as", "admin", "--no-default-modules", "--module", MODULES[1], status=1))

    def await_health(self, status):
        limit = time.monotonic() + 20
        while self.request("/health", None, method="GET")[0] != status:
            self.assertLess(time.monotonic(), limit, f"/health does not become {status}")
            time.sleep(0.05)

    def test_server_tells_its_health_check_that_it_stops_before_it_refuses_connections(self):
        token = self.serve("--drain", "60")
        kept = self.server.connect()
        self.addCleanup(kept.close)
        self.assertEqual(request(kept, TREE, token)[0], 200)
        self.server.process.terminate()
        self.await_health(503)
        self.assertIn("about to stop", self.request("/health", None, method="GET")[1]["error"]["message"])
        self.assertEqual([self.request(TREE, token)[0], request(kept, TREE, token)[0]], [200, 200])
        self.assertIsNone(kept.sock)  # the server closed it after the answer
        stopping = time.monotonic()
        self.server.stop()  # a second signal
        self.assertLess(time.monotonic() - stopping, 30)
        self.assertRaises(ConnectionRefusedError, self.request, TREE, token)

    def test_health_says_whether_the_store_answers(self):
        self.serve("--no-console")
        away = self.store.path.with_name("away")
        for _ in range(2):
            self.assertEqual(self.request("/health", None, method="GET"), (200, {"success": True, "data": None}))
            self.store.path.rename(away)
            self.await_health(503)
            _, answer = self.request("/health", None, method="GET")
            self.assertIn("store does not answer", answer["error"]["message"])
            self.assertFalse(self.store.path.exists())
            away.rename(self.store.path)
            self.await_health(200)
        client = self.send("/health", None, method="HEAD")
        response = client.getresponse()
        self.assertEqual((response.status, response.read(), response.headers["Cache-Control"]), (200, b"", "no-store"))
        send(client, "/health", None, b"{}")
        response = client.getresponse()
        self.assertEqual((response.status, response.headers["Allow"]), (405, "GET, HEAD"))
        self.assertEqual(self.request("/health/x", None, method="GET")[0], 404)
        self.server.stop()
        lines = [line.split(" ", 1)[1] for line in self.store.log.read_text(encoding="utf-8").splitlines()]
        outage = ["zemhost: the store does not answer: ", "zemhost: the store answers again after "]
        for line, expected in zip(lines, outage * 2 + ["- /health - 405 ", "- /health/x - 404 "], strict=True):
            self.assertTrue(line.startswith(expected), lines)

    def test_servers_are_moved_and_the_log_names_the_module(self):
        token = self.serve(account="m.okafor")  # who manages the groups 3 and 11
        move = "/webapi/VELQ.ZEM.KX/1/set"
        own = [id for (id,) in self.store.rows("SELECT id FROM kx WHERE parent_id = 3 ORDER BY id")]
        for change, code in [({"node_id": own, "parent_id": 6}, 117), ({"node_id": [*own, 77]}, 414),
                             ({"multiple_data": [{"id": own[0], "address": "x", "revision": 2}]}, 117),
                             ({"multiple_data": [{"id": own[0], "address": "x", "revision": 1, "sid": "x"}]}, 0)]:
            _, answer = self.request(move, token, json.dumps(change))
            self.assertEqual(answer.get("error", {"code": 0})["code"], code, answer)
        self.assertEqual(self.store.rows(f"SELECT address, sid, parent_id, revision FROM kx WHERE id = {own[0]}"),
                         [("x", "", 3, 2)])
        answer = self.request(move, self.store.token("admin"), json.dumps({"node_id": own, "parent_id": 6}))[1]
        self.assertTrue(answer["success"], answer)
        self.request("/webapi/VELQ.ZEM.GPO/1/link", token, '{"id":1,"target_add":[{"node_type":2,"node_id":6}]}')
        self.server.stop()
        log = self.store.log.read_text(encoding="utf-8")
        for module in ("kx", "gpo"):
            self.assertRegex(log, rf"module: webapi_zem_{module}\.cpp:\d+ No permission for normal user \[m\.okafor\]")
        self.assertEqual(re.findall("change: (.*)", log), [f"m.okafor server {own[0]} address"] +
                         [f"admin server {id} parent_id" for id in own])

    def test_names_with_line_ends_do_not_split_log_lines(self):
        self.store.path.unlink()
        fleet = json.loads(FLEET)
        fleet["accounts"].append({"uid": 77, "name": "eve\nadmin", "admin": False})
        (self.store.folder / "fleet.json").write_text(json.dumps(fleet))
        self.store.run("apply", "fleet.json")
        token = self.serve("--debug", account="eve\nadmin")
        admin = self.store.token("admin")
        self.request("/webapi/VELQ.ZEM.KXGroup/1/delete", token, '{"node_id":3}')
        self.request(CREATE, admin, '{"id":0,"name":"x\\ny","parent_id":0}')
        self.request(CREATE, admin, '{"id":0,"name":"x\\ny","parent_id":0}')
        self.assertIn("Failed [0 > VELQZEMOuCreate(&ou)]", self.server.process.stdout.readline())
        self.server.stop()
        lines = self.store.log.read_text(encoding="utf-8").splitlines()
        self.assertEqual([line for line in lines if not LOG_LINE.fullmatch(line)], [])
        said = "\n".join(line.split(" ", 1)[1] for line in lines)
        self.assertRegex(said, r"module: .*No permission for normal user \[eve\\u000aadmin\] on group \[3\]")
        self.assertRegex(said, r"module: .*Failed \[0 > VELQZEMOuCreate")
        self.assertEqual(re.findall("^change: (.*)", said, re.MULTILINE), ["admin group 13 created"])

    def test_nothing_that_is_printed_controls_a_terminal_or_hides_text(self):
        hidden = "\x7f\u0090\u009b\u202e\u2066\u200b\u2028\ufeff"
        self.store.path.unlink()
        fleet = json.loads(FLEET)
        fleet["accounts"].append({"uid": 77, "name": f"eve{hidden}", "admin": True})
        fleet["groups"][0]["name"] = f"a{hidden}"
        (self.store.folder / "fleet.json").write_text(json.dumps(fleet))
        printed = [self.store.run("apply", "fleet.json"), self.store.run("tokens"), self.store.run("tree", "--as", "admin")]
        token = self.serve(account=f"eve{hidden}")
        self.request(CREATE, token, json.dumps({"id": 0, "name": "x", "parent_id": 1}))
        self.request(f"/{quote(hidden)}", token, method="GET")
        self.server.stop()
        answer = self.store.run("call", "--as", "admin", "VELQ.ZEM.Tree", "get")
        self.assertEqual(json.loads(answer)["data"][0]["name"], f"a{hidden}")
        hosts = {"all": {"children": [f"b{hidden}"]}, f"b{hidden}": {"hosts": [f"h{hidden}"]}}
        (self.store.folder / "hosts.json").write_text(json.dumps(hosts))
        printed += [answer, self.store.run("tokens"), self.store.run("import", "ansible", "hosts.json"),
                    self.store.run("tree", "--as", hidden, status=1), self.store.run("apply", f"{hidden}.json", status=1),
                    self.store.log.read_text(encoding="utf-8")]
        for text in printed:
            self.assertNotRegex(text, f"[{hidden}]")

    def test_unread_log_drops_lines_and_blocks_no_request(self):
        reader, writer = os.pipe()
        fcntl.fcntl(reader, fcntl.F_SETPIPE_SZ, 4096)
        self.addCleanup(os.close, reader)
        self.server = Server(self.store, stderr=writer)
        os.close(writer)
        self.addCleanup(self.server.kill)
        sent = 4000
        with contextlib.closing(self.server.connect()) as connection:
            for _ in range(sent):  # 400 KB of lines
                self.assertEqual(request(connection, "/" + "x" * 100, None)[0], 404)
            log = b""
            while b"dropped" not in log or not log.endswith(b"\n"):
                self.assertTrue(wait([reader], timeout=30), "no line says how many were dropped")
                log += os.read(reader, 65536)
            *lines, last = log.decode().splitlines()
            self.assertEqual(len(lines) + int(re.search(r"(\d+) lines were dropped", last)[1]), sent)
            self.assertEqual([line for line in lines if not LOG_LINE.fullmatch(line)], [])
            for _ in range(sent):
                request(connection, "/" + "x" * 100, None)
        self.server.process.terminate()
        self.assertEqual(self.server.process.wait(timeout=20), 0)

    def test_queries_show_an_account_what_it_may_know(self):
        fleet = json.loads(FLEET)
        fleet["accounts"].append({"uid": 10000, "name": "idle"})
        (self.store.folder / "fleet.json").write_text(json.dumps(fleet))
        self.store.run("apply", "fleet.json")
        tokens = {"admin": self.serve(), "idle": self.store.token("idle"),
                  "m.okafor": self.store.token("m.okafor", "--label", "laptop", "--days", "1")}
        accounts = sorted(({"uid": account["uid"], "name": account["name"]} for account in fleet["accounts"]),
                          key=lambda account: account["name"])
        for expectation, path, account, found in QUERIES:
            with self.subTest(expectation):
                status, answer = self.request(path, tokens[account], method="GET")
                if isinstance(found, int):
                    self.assertEqual((status, answer["error"]["code"]), (found, found))
                    continue
                if isinstance(found, str):
                    found = [each["name"] for each in accounts if str(each["uid"]).startswith(found)]
                self.assertEqual((status, answer), (200, {"accounts": [a for a in accounts if a["name"] in found]}))
        _, session = self.request("/session", tokens["m.okafor"], method="GET")
        self.assertAlmostEqual(session["token"].pop("expires"), time.time() + 86400, delta=60)
        self.assertEqual(session, {"uid": 1001, "name": "m.okafor", "admin": False, "token": {"label": "laptop"},
                                   "version": session["version"]})
        _, session = self.request("/session", tokens["admin"], method="GET")
        self.assertEqual((session["admin"], session["token"]), (True, {"label": "", "expires": 0}))
        self.store.run("revoke", "admin")
        for path in "/session", "/accounts":
            for token in "0" * 64, tokens["admin"]:
                self.assertEqual(self.request(path, token, method="GET")[0], 401)
            self.assertEqual(self.request(path, tokens["idle"])[0], 405)

    def test_history_tells_over_http_and_on_the_command_line_who_changed_what(self):
        token = self.serve(account="m.okafor")
        self.request("/webapi/VELQ.ZEM.KXGroup/1/set", token, json.dumps({"node_id": 3, "desc": "a\tb"}))
        self.store.run("link", "remove", "group", "3", "4")
        status, answer = self.request("/history?node=group:3", token, method="GET")
        self.assertEqual((status, answer["next"], len(answer["changes"])), (200, None, 3))
        link, desc, created = answer["changes"]
        self.assertEqual(desc, {"time": desc["time"], "uid": 1001, "account": "m.okafor", "action": "changed",
                                "kind": "group", "id": 3, "name": "Web", "path": "Web", "members": [
                                    {"member": "desc", "before": "Public site and customer portal", "after": "a\tb"}]})
        self.assertEqual([(change["command"], change["action"]) for change in (link, created)],
                         [("link", "changed"), ("apply", "created")])
        lines = self.store.run("history", "--node", "group:3", "--since", time.strftime("%Y-%m-%d", time.gmtime(0)))
        self.assertRegex(lines.splitlines()[1], r"^\S+Z m\.okafor changed group 3 \S*/Web: desc Public .* -> a\\u0009b$")
        self.assertRegex(lines.splitlines()[0], r"Z zemhost link changed group 3 \S*/Web: linked_gpo 4,3 -> 3$")
        only = self.store.run("history", "--by", "m.okafor", "--json").splitlines()
        self.assertEqual([json.loads(line)["members"] for line in only], [desc["members"]])

    def test_tokens_are_created_listed_and_revoked(self):
        kept, lost = self.serve(), self.store.token("admin", "--label", "old laptop", "--days", "2")
        expired = self.store.token("m.okafor", "--days", "1")
        for token in kept, lost, expired:
            self.assertEqual(self.request(TREE, token)[0], 200)
        with contextlib.closing(sqlite3.connect(self.store.path)) as database, database:
            database.execute("UPDATE token SET expires = ? WHERE uid = 1001", [int(time.time())])
        self.assertEqual(self.request(TREE, expired)[0], 401)
        self.assertRegex(self.store.run("tokens"), "(?m)^admin .* never$")  # the server has yet to write the uses
        self.server.stop()
        table = self.store.run("tokens")
        a_time = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ"
        for row in ["ACCOUNT +LABEL +MADE +EXPIRES +LAST USED", f"admin +- +{a_time} +never +{a_time}",
                    f"admin +old laptop +{a_time} +{a_time} +{a_time}",
                    rf"m.okafor +- +{a_time} +{a_time} \(expired\) +{a_time}"]:
            self.assertRegex(table, f"(?m)^{row}$")
        self.serve()
        self.assertNotIn("okafor", self.store.run("tokens", "admin"))
        self.assertEqual(self.store.run("revoke", "admin", "old laptop"), "1 token revoked\n")
        self.assertEqual(self.store.run("revoke", "admin", "old laptop", status=1), "0 tokens revoked\n")
        self.assertEqual([self.request(TREE, token)[0] for token in (lost, kept)], [401, 200])
        self.store.run("revoke", "admin")
        self.assertEqual(self.request(TREE, kept)[0], 401)

    def test_token_revoked_while_the_body_arrives_is_refused(self):
        token = self.serve()
        self.request(TREE, token)
        client = self.send(TREE, token, None, headers={"Expect": "100-continue", "Content-Length": 2})
        self.assertIn(b" 100 ", client.sock.recv(1000))
        self.store.run("revoke", "admin")
        new_token = self.store.token("admin")
        client.sock.sendall(b"{}")
        self.assertEqual(receive(client)[0], 401)
        self.assertEqual(self.request(TREE, new_token)[0], 200)

    def test_bodies_with_unknown_tokens_leave_memory_to_known_accounts(self):
        token = self.serve()
        self.request(TREE, token)
        body = b" " * (1 << 20)
        for _ in range(7):
            self.send(CREATE, "0" * 64, None, headers={"Content-Length": 2 << 20}).sock.sendall(body)
        limit = time.monotonic() + 30
        status = 401
        while status == 401 and time.monotonic() < limit:  # until the bodies above have arrived, which take 7 of 8 MiB
            status, _ = self.request(TREE, "0" * 64, body + body)
        self.assertEqual(status, 503)
        self.assertEqual(self.request(TREE, token, body + body + b"{}")[0], 200)

    def test_kept_answers_leave_memory_to_others(self):
        fleet = json.loads(FLEET)
        setting = {"version": 1, "text": "x" * 1_000_000}
        fleet["policies"] += [{"id": 100 + i, "name": f"{i}", "desc": "", "parent_id": 0, "setting": setting} for i in range(4)]
        self.store.run("apply", "-", input=json.dumps(fleet))
        token = self.serve("--memory", "64")
        for blanks in range(20):  # 80 MB of answers, each with a body of its own
            self.assertEqual(self.request(TREE, token, " " * blanks + "{}")[0], 200)

    def test_senders_with_too_many_connections_lose_some(self):
        few_files = ["prlimit", "--nofile=320"]  # of which half is for connections: 80 of an address, 20 of an account
        self.server = Server(self.store, "--proxy", "127.0.0.1", before=few_files)
        self.addCleanup(self.server.stop)
        token = self.store.token("admin")
        self.request(TREE, token)

        def open_slowly(count, token, client):
            headers = {"Content-Length": 9, "X-Forwarded-For": f"10.9.9.9, {client}"}
            return [self.send(CREATE, token, None, headers=headers).sock for _ in range(count)]

        others = open_slowly(1, "0" * 64, "10.0.0.1")
        crowds = [open_slowly(84, "0" * 64, "10.0.0.2"), open_slowly(25, token, "10.0.0.2")]
        limit = time.monotonic() + 10
        closed = []
        while len(closed) < 9 and time.monotonic() < limit:
            closed = wait([*others, *crowds[0], *crowds[1]], timeout=1)
        time.sleep(0.3)  # no others follow
        self.assertEqual([len(wait(clients, timeout=0)) for clients in (others, *crowds)], [0, 4, 5])
        self.assertEqual(self.get("GET", "/health").status, 200)

    def test_broken_fleet_files_are_refused_with_the_place_and_change_nothing(self):
        self.store.path.unlink()
        for fault, text, other, place in BROKEN_FLEETS:
            with self.subTest(refused=fault):
                (self.store.folder / "broken.json").write_text(FLEET.replace(text, other, 1), encoding="utf-8")
                self.assertIn(place, self.store.run("apply", "broken.json", status=1))
                self.assertFalse(self.store.path.exists())
        self.store.fill()
        tree = self.store.run("tree", "--as", "admin")
        self.assertIn("\n12 groups, 30 servers, 8 policies, 22 links, 5 delegates\n", tree)
        self.assertEqual(self.store.run("apply", SAMPLE), "0 created, 0 changed, 0 deleted\n")
        self.assertEqual(self.store.run("tree", "--as", "admin"), tree)

    def trees(self):
        """Returns the module's answers for the trees of all accounts, by account name."""
        names = re.findall(r'"uid": \d+, "name": "([^"]+)"', self.store.run("export"))
        return {name: self.store.run("call", "VELQ.ZEM.Tree", "get", "--as", name) for name in names}

    def test_exported_fleet_gives_the_same_trees_and_export_in_another_store(self):
        deep = '{"id":8,"parent_id":0,"name":"deep","extra_info":' + "[" * 990 + "]" * 990 + "}"
        (self.store.folder / "deep.json").write_text('{"groups":[{"id":0,"desc":"all"},' + deep + "]}")
        self.store.run("apply", "deep.json")
        data = pathlib.Path(__file__).parent / "data"
        for source in [self.store.path, data / "store_v1.db", data / "store_v2.db"]:
            with self.subTest(source):
                self.store = Store(BUILD, self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
                for path in source.parent.glob(source.name + "*"):
                    (self.store.folder / path.name.replace(source.name, "zem.db")).write_bytes(path.read_bytes())
                trees, text = self.trees(), self.store.run("export")
                self.store = Store(BUILD, self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
                (self.store.folder / "fleet.json").write_text(text, encoding="utf-8")
                self.store.run("apply", "fleet.json")
                self.assertEqual(self.trees(), trees)
                self.assertEqual(self.store.run("export"), text)
                self.assertEqual(self.store.run("apply", "--prune", "fleet.json"), "0 created, 0 changed, 0 deleted\n")

    def test_backup_of_a_served_store_is_sound_and_check_names_what_is_not(self):
        self.serve()
        self.store.run("backup", "copy.db")
        for name, why in [("copy.db", "File exists"), ("../copy.db", "beside the store")]:
            self.assertIn(why, self.store.run("backup", name, status=1))
        copy = {**os.environ, "ZEM_STORE": f"sqlite:{self.store.folder}/copy.db"}
        self.assertEqual(self.store.run("export", env=copy), self.store.run("export"))
        self.assertEqual(self.store.run("check", env=copy).count("ok "), 5)
        with contextlib.closing(sqlite3.connect(self.store.folder / "copy.db")) as database, database:
            database.execute("UPDATE token SET expires = unixepoch() + 9, last_used = unixepoch()")
            database.execute("UPDATE gpo SET name = '' WHERE id = 3")
        said = self.store.run("check", env=copy, status=1)
        for wrong in "records of the store: policy 3 ", 'tokens: .*admin ".*" ends on 20':
            self.assertRegex(said, "(?m)^wrong  " + wrong)

    def test_plan_lists_exactly_the_edits(self):
        before, trees = self.store.run("export"), self.trees()
        text = before
        for part, other, _ in EDITS:
            line = next(line for line in text.splitlines(keepends=True) if part in line)
            text = text.replace(line, "" if other is None else line.replace(part, other))
        text = re.sub(r"\},(\s*\])", r"}\1", text)  # after a deleted last line of a section
        (self.store.folder / "fleet.json").write_text(text, encoding="utf-8")
        plan = self.store.run("apply", "fleet.json", "--prune", "--dry-run").splitlines()
        self.assertCountEqual(plan[:-1], [line for _, _, line in EDITS])
        self.assertEqual(plan[-1], "1 created, 3 changed, 2 deleted; dry run, nothing was written")
        self.assertEqual(self.store.run("export"), before)
        self.assertEqual(self.store.run("apply", "fleet.json", "--prune").splitlines()[:-1], plan[:-1])
        self.assertEqual(self.store.run("apply", "fleet.json", "--prune"), "0 created, 0 changed, 0 deleted\n")
        after = self.trees()
        self.assertIn('"Head office"', after["admin"])
        self.assertNotIn("Warehouses", after["m.okafor"])
        self.assertEqual(after["j.lindgren"].count("Warehouses"), trees["j.lindgren"].count("Warehouses"))
        self.assertNotIn("p.duarte", after)

    def inventory(self):
        """Returns the sample inventory. Where Ansible is installed, checks that it prints the same."""
        if shutil.which("ansible-inventory"):
            printed = subprocess.run(["ansible-inventory", "-i", DATA / "inventory.ini", "--list"], check=True,
                                     text=True, capture_output=True, timeout=120, cwd=self.store.folder,
                                     env={**os.environ, "HOME": str(self.store.folder)}).stdout
            self.assertEqual(json.loads(printed), json.loads((DATA / "inventory.json").read_text(encoding="utf-8")))
        return json.loads((DATA / "inventory.json").read_text(encoding="utf-8"))

    def import_inventory(self, inventory, *options, status=0):
        return self.store.run("import", "ansible", "-", *options, input=json.dumps(inventory), status=status)

    def records(self):
        """Returns the groups and servers of the store by name, without the members that the store sets itself."""
        fleet = json.loads(self.store.run("export"))
        return {record["name"]: {key: record[key] for key in record.keys() - {"mtime", "revision"}}
                for record in fleet["groups"] + fleet["servers"]}

    def call_module(self, api, method, params):
        self.store.run("call", f"VELQ.ZEM.{api}", method, "--params", json.dumps(params), "--as", "admin")

    def test_ansible_inventory_is_imported_and_a_later_one_updates_it(self):
        inventory = self.inventory()
        self.call_module("KXGroup", "create", {"id": 0, "name": "gone", "parent_id": 0})
        self.call_module("KXGroup", "delete", {"node_id": 13})
        before = self.records()
        planned = self.import_inventory(inventory, "--dry-run")
        self.assertEqual(self.records(), before)
        printed = self.import_inventory(inventory)
        self.assertEqual(planned, printed.replace(" deleted\n", " deleted; dry run, nothing was written\n"))
        for line in ["+ group 14 north", "13 created, 0 changed, 0 deleted",
                     'group "databases" has several parents and stands under "sites"',
                     'host "web1.example.net" is in several groups and stands in "north/sites/databases"',
                     'host "db2.example.net": its ansible_host is a template and left out']:
            self.assertIn(line + "\n", printed)
        for line in ['12 groups of the store are .* stay as they are: 1 "Headquarters", .*, 12 "Retired"',
                     r'30 servers of the store are .*: 1 "hq-dir1.brackwater.example", .*", \.\.\.']:
            self.assertRegex(printed, f"(?m)^{line}$")
        tree = self.store.run("tree", "--as", "admin")
        self.assertIn("group north\n  group web\n    server web2.example.net\n    server web3.example.net\n"
                      "    server stage.example.net\n  group sites\n    group databases\n", tree)
        web, stage = (self.records()[name]["id"] for name in ("web", "stage.example.net"))
        self.call_module("KXGroup", "set", {"node_id": web, "desc": "kept", "linked_gpo": {"order": [{"id": 5}]},
                                            "delegate": [{"ugid": 1001, "user_type": 2}]})
        self.call_module("GPO", "link", {"id": 4, "target_add": [{"node_type": 3, "node_id": stage}]})
        expected = self.records()
        self.assertIn("0 created, 0 changed, 0 deleted\n", self.import_inventory(inventory))
        self.assertEqual(self.records(), expected)

        inventory["_meta"]["hostvars"]["stage.example.net"]["ansible_host"] = "192.0.2.99"
        self.import_inventory(inventory)
        expected["stage.example.net"]["address"] = "192.0.2.99"
        self.assertEqual(self.records(), expected)

        renamed = json.loads(json.dumps(inventory).replace('"north"', '"south"'))
        self.assertIn(', 14 "north"', self.import_inventory(renamed, "--dry-run"))

        inventory["cold"] = {"children": ["north"]}
        refused = self.import_inventory(inventory, status=1)
        self.assertIn('standard input: group "cold": it is in a circle of groups', refused)
        self.assertEqual(self.records(), expected)

    def test_records_are_found_by_path_or_name_and_shown_with_identifiers(self):
        created = json.dumps({"id": 0, "name": "a/b \\", "parent_id": 3})
        self.store.run("call", "VELQ.ZEM.KXGroup", "create", "--params", created, "--as", "admin")
        for node in [("group", r"Headquarters/Web/a\/b \\"), ("group", "/Retired/"), ("server", "hq-print1.brackwater.example")]:
            self.store.run("link", "add", *node, "Early updates")
        drawn = self.store.run("tree", "--as", "admin", "--ids")
        for line in ["    group 13 a/b \\  policies: 8 Early updates", "group 12 Retired  policies: 8 Early updates",
                     "  server 15 hq-print1.brackwater.example  policies: 8 Early updates",
                     "    group 4 Web staging  policies: 8 Early updates", "policy 8 Early updates (linked)"]:
            self.assertIn(line + "\n", drawn)
        self.assertIn("  delegates: 1001 m.okafor", drawn)
        for node, id in [("group:Retired", "group 12"), ("policy:Early updates", "policy 8"), ("account:p.duarte", "account 1003")]:
            self.assertIn(f" created {id} ", self.store.run("history", "--node", node))
        self.store.run("history", "--node", "group:/")
        for node in ["group:Web", "group:", "server:none", "account:none"]:
            self.assertIn("there is no ", self.store.run("history", "--node", node, status=1))
        table = self.store.run("accounts")
        for row in ["ACCOUNT +UID +ADMINISTRATOR +GROUPS", "admin +1000 +yes +0", "m.okafor +1001 +no +2"]:
            self.assertRegex(table, f"(?m)^{row}$")

    def test_link_and_list_commands_show_changes(self):
        for action, drawn in [("add", "group Retired  policies: Early updates\n"), ("remove", "group Retired\n")]:
            self.store.run("link", action, "group", "12", "8")
            self.assertIn(drawn, self.store.run("tree", "--as", "admin"))
        page = self.store.run(*"list --as admin --sort-by name --offset 1 --limit 2".split())
        self.assertRegex(page, '(?s)"Plants".*"Retired"')
        self.assertNotIn('"Headquarters"', page)

    def test_only_apply_and_serve_create_a_store(self):
        empty = self.store.folder / "empty"
        empty.mkdir()
        environment = {**os.environ, "ZEM_STORE": f"sqlite:{empty}/zem.db"}
        for command in COMMANDS_ON_A_STORE:
            with self.subTest(fails=command):
                self.assertIn("there is no store", self.store.run(*command.split(), status=1, env=environment))
                self.assertEqual(list(empty.iterdir()), [])
        self.assertIn("\n54 created, ", self.store.run("apply", SAMPLE, "--dry-run", env=environment))
        self.assertEqual(list(empty.iterdir()), [])
        # The option overrides the environment.
        self.store.run("tree", "--as", "admin", "--store", "sqlite:zem.db", env=environment)
        self.store = Store(BUILD, empty)
        self.server = Server(self.store)
        self.server.stop()
        self.assertIn("zemhost apply FILE", self.store.log.read_text(encoding="utf-8"))
        self.store.run("apply", SAMPLE, env=environment)
        self.assertIn("group Retired\n", self.store.run("tree", "--as", "admin", env=environment))

    def test_store_in_use_is_not_removed(self):
        command = [pathlib.Path(__file__).resolve().parent.parent / "tools/remove_store", self.store.path]
        token = self.serve()
        self.assertIn("has it open", subprocess.run(command, capture_output=True, text=True, timeout=60).stderr)
        self.assertTrue(self.request(CREATE, token, '{"id":0,"name":"Lab","parent_id":0}')[1]["success"])
        self.assertIn("group Lab\n", self.store.run("tree", "--as", "admin"))
        self.server.stop()
        subprocess.run(command, check=True, timeout=60)
        self.assertEqual(list(self.store.folder.glob("zem.db*")), [])

    def test_refused_commands_say_why_and_end_with_status_one_or_two(self):
        (self.store.folder / "text.so").write_text("no module")
        self.build_module("nullptr")
        for fault, command, status, reason in REFUSED_COMMANDS:
            with self.subTest(refused=fault):
                before = set(self.store.folder.iterdir())
                self.assertIn(reason, self.store.run(*command.split(), status=status))
                self.assertEqual(set(self.store.folder.iterdir()), before)
        self.store.path.unlink()
        for command, status in [("serve --listen 8480", 2), ("serve --console nowhere", 2), ("apply nowhere.json", 1)]:
            with self.subTest(makes_no_store=command):
                self.store.run(*command.split(), status=status)
                self.assertFalse(self.store.path.exists())


if __name__ == "__main__":
    unittest.main()
