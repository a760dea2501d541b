#!/usr/bin/env python3
"""tools/fetch_packages where there is no npm, against a registry on loopback."""
import base64
import hashlib
import http.server
import io
import json
import pathlib
import shutil
import subprocess
import sys
import tarfile
import tempfile
import threading
import unittest

TOOL = pathlib.Path(__file__).resolve().parent.parent / "tools/fetch_packages"


def archive(name):
    """A package as the registry has it: its description below a folder of any name."""
    text = json.dumps({"name": name, "version": "1.2.3"}).encode()
    info = tarfile.TarInfo("package/package.json")
    info.size = len(text)
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w:gz") as tar:
        tar.addfile(info, io.BytesIO(text))
    return packed.getvalue()


def locked(content, **more):
    digest = base64.b64encode(hashlib.sha512(content).digest()).decode()
    return {"version": "1.2.3", "integrity": "sha512-" + digest, **more}


class PackagesTest(unittest.TestCase):
    """Each test has a project folder and a registry that offers "widget" and "@maker/probe"."""

    def setUp(self):
        self.root = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
        self.found = self.root / "build/npm/node_modules"
        for folder in ["bin", "tools"]:
            (self.root / folder).mkdir()
        shutil.copy(TOOL, self.root / "tools")
        for program in ["tar", "gzip"]:  # and no npm
            (self.root / "bin" / program).symlink_to(shutil.which(program))
        self.offered = {"/widget/-/widget-1.2.3.tgz": archive("widget"),
                        "/@maker/probe/-/probe-1.2.3.tgz": archive("probe")}
        self.asked = []
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), self.handler())
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.addCleanup(self.server.server_close)
        self.addCleanup(self.server.shutdown)
        widget, probe = self.offered.values()
        self.lock({"node_modules/widget": locked(widget), "node_modules/@maker/probe": locked(probe, dev=True)})

    def handler(self):
        test = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                test.asked.append(self.path)
                content = test.offered.get(self.path)
                self.send_response(404 if content is None else 200)
                self.end_headers()
                self.wfile.write(content or b"")

            def log_message(self, *_):
                pass

        return Handler

    def lock(self, packages):
        (self.root / "package-lock.json").write_text(json.dumps({"packages": {"": {}, **packages}}))

    def fetch(self, purpose, status=0, registry=None):
        registry = f"http://127.0.0.1:{self.server.server_port}/" if registry is None else registry
        done = subprocess.run([sys.executable, self.root / "tools/fetch_packages", purpose], capture_output=True,
                              text=True, timeout=60,
                              env={"PATH": str(self.root / "bin"), "npm_config_registry": registry})
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stderr

    def test_what_is_locked_is_fetched_once(self):
        self.fetch("run", status=3, registry="")
        self.fetch("run")
        self.assertEqual([path.name for path in self.found.iterdir()], ["widget"])
        self.fetch("test")
        self.assertTrue((self.found / "@maker/probe/package.json").exists())
        self.assertEqual(self.asked, list(self.offered))
        self.server.shutdown()
        self.server.server_close()
        self.assertEqual(self.fetch("test"), "")

    def test_what_is_not_as_locked_does_not_come_in(self):
        self.fetch("test")
        changed = {**locked(self.offered["/widget/-/widget-1.2.3.tgz"]), "version": "1.2.4"}
        self.lock({"node_modules/widget": changed})
        self.assertIn("widget 1.2.4", self.fetch("run", status=1))
        self.offered["/widget/-/widget-1.2.4.tgz"] = archive("worm")
        self.assertIn("not what package-lock.json describes", self.fetch("run", status=1))
        self.assertEqual(json.loads((self.found / "widget/package.json").read_text())["name"], "widget")
        self.assertEqual([path.name for path in (self.root / "build/npm").iterdir()], ["node_modules"])


if __name__ == "__main__":
    unittest.main()
