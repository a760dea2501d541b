#!/usr/bin/env python3
"""Sends the examples of docs/openapi.yaml to a server, and holds each answer against the schema that it belongs to.

usage: tests/openapi_test.py BUILD_DIR [option of unittest or OpenApiTest.test_...]
"""
import contextlib
import json
import pathlib
import re
import sys
import tempfile
import unittest
import urllib.parse

import jsonschema
import yaml

sys.dont_write_bytecode = True  # no cache beside the sources
ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tools"))
from zemhost import Server, Store, send  # noqa: E402

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
API = yaml.safe_load((ROOT / "docs/openapi.yaml").read_text(encoding="utf-8"))


def errors(schema, value):
    """Returns what the schema finds wrong. It may refer to the components of the file."""
    validator = jsonschema.Draft202012Validator({**schema, "components": API["components"]})
    return [error.message for error in validator.iter_errors(value)]


def response_schema(operation, status, content_type):
    response = operation["responses"].get(str(status)) or operation["responses"]["default"]
    if "$ref" in response:
        response = API["components"]["responses"][response["$ref"].rpartition("/")[2]]
    return response["content"][content_type]["schema"]


def answer_to(connection, *arguments, **options):
    """Sends a request, and returns the status, the type and the content of the answer."""
    send(connection, *arguments, **options)
    response = connection.getresponse()
    content, content_type = response.read().decode(), response.headers.get_content_type()
    return response.status, content_type, json.loads(content) if content_type == "application/json" else content


def requests_of(path, operation):
    """Yields name, path and body of each example; without examples, of one request."""
    body = operation.get("requestBody", {}).get("content", {}).get("application/json", {})
    queries = [item for item in operation.get("parameters", []) if item["in"] == "query"]
    for name, example in body.get("examples", {}).items():
        yield name, path, example["value"], body["schema"]
    for query in queries:
        for name, example in query["examples"].items():
            yield name, f"{path}?{query['name']}={urllib.parse.quote(example['value'])}", None, {}
    if not body and not queries:
        yield "plain", path, None, {}


class OpenApiTest(unittest.TestCase):
    def test_examples_get_the_answers_that_are_described(self):
        store = Store(BUILD, self.enterContext(tempfile.TemporaryDirectory(prefix="zem-")))
        store.fill()
        server = Server(store, "--no-console")
        self.addCleanup(server.stop)
        token = store.token("admin")
        for path, method, operation in ((path, *item) for path, item in API["paths"].items() for item in item.items()):
            for name, url, body, schema in requests_of(path, operation):
                with self.subTest(f"{method} {url} {name}"), contextlib.closing(server.connect()) as connection:
                    text = None if body is None else json.dumps(body)
                    status, kind, answer = answer_to(connection, url, token, text, method=method.upper())
                    self.assertEqual(errors(response_schema(operation, status, kind), answer), [], answer)
                    refused = status != 200 or "error" in answer
                    self.assertEqual(refused, name.startswith("refused"), answer)
                    self.assertTrue(refused or errors(schema, body) == [], "the example does not fit its own schema")

    def test_every_method_is_described(self):
        rows = [row for table in ("frame", "gpo", "kx") for row in re.findall(
            r'\{"([\w.]+)", (\d+), "(\w+)"', (ROOT / table / "api_table.cpp").read_text(encoding="utf-8"))]
        self.assertCountEqual(["/webapi/" + "/".join(row) for row in rows],
                              [path for path in API["paths"] if path.startswith("/webapi/")])


if __name__ == "__main__":
    unittest.main()
