#!/usr/bin/env python3
"""Installs an older package, fills the store of its service, upgrades to the package of this build, and goes back.

Without --from, the older package contains the programs of this build under an older version number. --from builds the
package of that commit, in minutes; without a commit, of the last one with another version. Do this before a release.

usage: tools/upgrade_test.py BUILD_DIR [--from [COMMIT]]
"""
import argparse
import contextlib
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no cache beside the sources
from zemhost import SKIPPED, Server, Store, call  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parent.parent
SETTINGS = "# of this site\nZEM_STORE=sqlite:{}\nZEM_OPTIONS='--keep-history 30'\n"


def output(*command, **options):
    """Runs a command, which must succeed, and returns what it prints."""
    done = subprocess.run([str(word) for word in command], timeout=3000, encoding="utf-8", stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{command} ended with status {done.returncode}: {done.stdout}")
    return done.stdout


def pack(build, folder):
    """Makes the package of a build in the folder, and returns its path."""
    output("cpack", "--config", build / "CPackConfig.cmake", "-B", folder)
    package, = folder.glob("*.deb")
    return package


def relabel(package, folder):
    """Returns a package with the same programs, an older version, and another text in the file of settings."""
    output("dpkg-deb", "--raw-extract", package, folder)
    control = folder / "DEBIAN/control"
    control.write_text(re.sub("(?m)^Version: .*", "Version: 0.0.1-1", control.read_text()))
    settings = folder / "etc/default/zemhost"
    settings.write_text(settings.read_text() + "\n# older\n")
    output("dpkg-deb", "--root-owner-group", "--build", folder, folder.with_suffix(".deb"))
    return folder.with_suffix(".deb")


def pack_commit(commit, folder):
    """Builds the package of a commit in the folder, and returns its path."""
    if not commit:
        change = ["git", "log", "-1", "--format=%H", "-G^project\\(zem VERSION", "--", "CMakeLists.txt"]
        commit = output(*change, cwd=ROOT).strip() + "^"
    folder.mkdir()
    output("sh", "-c", f"git archive {commit} | tar -x -C '{folder}'", cwd=ROOT)
    shutil.copytree(ROOT / "build/npm", folder / "build/npm")
    output("cmake", "-G", "Ninja", "-S", folder, "-B", folder / "built", "-DCMAKE_BUILD_TYPE=RelWithDebInfo")
    output("cmake", "--build", folder / "built", "--target", "deb", env={**os.environ, "SOURCE_DATE_EPOCH": "0"})
    package, = (folder / "built").glob("*.deb")
    return package


class Machine:
    """A folder with a package database of its own. What the packages' scripts tell systemd has no effect."""

    def __init__(self, folder):
        self.root = folder / "root"
        for name in ["var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/zemhost", "etc"]:
            (self.root / name).mkdir(parents=True)
        (self.root / "var/lib/dpkg/status").touch()
        stubs = folder / "stubs"
        stubs.mkdir()
        for name in ["deb-systemd-helper", "deb-systemd-invoke", "systemctl"]:
            (stubs / name).symlink_to("/bin/true")
        self.path = f"{stubs}:/usr/sbin:/sbin:{os.environ['PATH']}"
        self.settings = self.root / "etc/default/zemhost"
        self.store = Store(self.root / "usr/bin", self.root / "var/lib/zemhost")
        self.store.environment = {**os.environ, "ZEM_STORE": self.store.url}

    def install(self, package):
        output("dpkg", "--root", self.root, "--log=/dev/null", "--force-script-chrootless", "--force-depends",
               "--force-confdef", "--force-confold", "--install", package, env={**os.environ, "PATH": self.path})

    def schema(self):
        (version,), = self.store.rows("SELECT value FROM meta WHERE name = 'version'")
        return version


@contextlib.contextmanager
def serving(store):
    server = Server(store)
    try:
        with contextlib.closing(server.connect()) as connection:
            yield connection
    finally:
        server.stop()


def check_refusal(machine):
    """A program that is older than the schema of the store says so, and does not convert it back."""
    schema = machine.schema()
    said = machine.store.run("export", status=1)
    assert re.search(f"the store has schema version {schema}, this program needs \\d+", said), said
    assert machine.schema() == schema


def check_upgrade(machine, old, new):
    store = machine.store
    machine.install(old)
    machine.settings.write_text(SETTINGS.format(store.path))
    store.fill()
    token = store.token("admin", "--label", "laptop")
    old_schema = machine.schema()
    with serving(store) as connection:
        group = call(connection, token, "KXGroup create", {"id": 0, "parent_id": 0, "name": "Lab"})[1]["data"]["ids"]
        machine.install(new)  # the old server continues until it is stopped
        assert call(connection, token, "KXGroup set", {"node_id": group, "desc": "Cellar"})[1]["success"]
    fleet = store.folder / "fleet.json"

    assert machine.settings.read_text() == SETTINGS.format(store.path), machine.settings.read_text()
    assert machine.settings.stat().st_mode & 0o777 == 0o600
    environment = {name: value for name, value in os.environ.items() if name != "ZEM_STORE"}
    said = store.run("check", env=environment)
    assert str(machine.settings) in said and "wrong" not in said, said
    fleet.write_text(store.run("export"))
    assert '"Cellar"' in fleet.read_text()
    assert re.search("laptop.*never", store.run("tokens", "admin"))
    with serving(store) as connection:
        assert call(connection, token, "KXGroup set", {"node_id": group, "desc": "Attic"})[1]["success"]

    machine.install(old)
    if machine.schema() != old_schema:
        check_refusal(machine)
        machine.install(new)
        assert '"Attic"' in store.run("export")
        return
    assert '"Attic"' in store.run("export")
    with serving(store) as connection:
        assert call(connection, token, "KXGroup delete", {"node_id": group})[1]["success"]
    with contextlib.closing(sqlite3.connect(store.path)) as database:
        database.execute("UPDATE meta SET value = value + 1 WHERE name = 'version'")
        database.commit()
    check_refusal(machine)


def main():
    options = argparse.ArgumentParser(usage=__doc__.rpartition("usage: ")[2])
    options.add_argument("build", type=pathlib.Path)
    options.add_argument("--from", dest="commit", nargs="?", const="")
    options = options.parse_args()
    if os.geteuid() != 0:
        print("only root installs packages")
        sys.exit(SKIPPED)
    with tempfile.TemporaryDirectory(prefix="zem-") as folder:
        folder = pathlib.Path(folder)
        new = pack(options.build.resolve(), folder / "new")
        old = relabel(new, folder / "old") if options.commit is None else pack_commit(options.commit, folder / "old")
        check_upgrade(Machine(folder), old, new)
    print("the upgrade and the way back keep the store, its tokens and the settings")


if __name__ == "__main__":
    main()
