#!/usr/bin/env python3
"""Talks to the real `delegationctl rpc` over pipes.

usage: rpc_test.py DELEGATIONCTL
"""
import json
import os
import pathlib
import subprocess
import sys
import unittest

sys.path.append(str(pathlib.Path(__file__).parent.parent / "hardening"))
from world import TABS, delegation

PROGRAM = "delegationctl"
LONGEST = 8 << 20


def request(method, *params, id=1):
    return json.dumps({"jsonrpc": "2.0", "id": id, "method": method, "params": params}).encode()


def error(code, id=None):
    text = {-32700: "Parse error", -32600: "Invalid Request", -32601: "Method not found", -32602: "Invalid params"}[code]
    return {"jsonrpc": "2.0", "id": id, "error": {"code": code, "message": text}}


class Rpc(unittest.TestCase):
    def setUp(self):
        self.process = subprocess.Popen([PROGRAM, "--demo", "rpc"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)

    def tearDown(self):
        out, err = self.process.communicate(timeout=60)
        self.assertEqual((out, err, self.process.returncode), (b"", b"", 0))

    def say(self, line):
        self.process.stdin.write(line + b"\n")
        self.process.stdin.flush()

    def ask(self, line):
        self.say(line)
        return json.loads(self.process.stdout.readline())

    def call(self, method, *params):
        answer = self.ask(request(method, *params))
        self.assertEqual((answer["jsonrpc"], answer["id"]), ("2.0", 1))
        return answer["result"]

    def assert_alive(self):
        self.assertEqual(self.call("DelegationUserAllowWebapi", "bob", "Webapi_Queue_Flush_v1"), {"return": 0})

    def test_every_function_gives_its_result_and_output(self):
        change = delegation("New", 1, set(), ["user ann"], id=3)
        for method, *params, result in (
                ("DelegationDelegationCreate", delegation("New", 1, {"queue"}), {"return": True, "out": 3}),
                ("DelegationDelegationUpdate", change, {"return": True}),
                ("DelegationDelegationUpdateImpFromSingle", change, {"return": True, "out": [{"id": 1001, "name": "ann"}]}),
                ("DelegationDelegationEntryAllList", "queue", {"return": True, "out": ["false", "true"]}),
                ("DelegationDelegationDefaultEntriesGet", {"return": True, "out": dict.fromkeys(TABS, "false")}),
                ("DelegationDefaultDelegationEntryGet", "queue", {"return": True, "out": "false"}),
                ("DelegationUserDelegationEntriesGet", "bob", {"return": True, "out": {"enable_tabs": ["log_list", "queue"]}}),
                ("DelegationUserHasAllDomainDelegations", 1001, {"return": True}),
                ("DelegationUserAllowWebapi", "bob", "Webapi_Quaypost_Get_v1", {"return": 1}),
                ("DelegationUserAllowWebapi", "nobody", "x", {"return": -1})):
            self.assertEqual(self.call(method, *params), result)
        for method, members in (("DelegationDelegationList", [1, 2, 3]), ("DelegationUserGroupDelegationInfoList", [1, 2, 3])):
            self.assertEqual([item["id"] for item in self.call(method, {"detail": True})["out"]], members)
        self.assertEqual(len(self.call("DelegationUserList", {})["out"]), 7)
        self.assertEqual(self.call("DelegationDelegationDelete", [3]), {"return": True})
        self.assertEqual(self.call("DelegationRefresh"), {"return": True})
        records = [(record["kind"], record["action"], record["actor"] and record["actor"]["uid"], len(record["delegations"]))
                   for record in self.call("admin.history", {})["out"]]
        changes = ("DelegationDelegationCreate", "DelegationDelegationUpdate", "DelegationDelegationDelete")
        self.assertEqual(records, [("start", "begin of the journal", None, 2)] +
                         [("change", action, os.getuid(), 1) for action in changes])

    def test_wrong_arguments_are_invalid_params(self):
        for method, params in (("DelegationDelegationList", []), ("DelegationDelegationList", [1, 2]),
                               ("DelegationDelegationEntryAllList", [1]), ("DelegationUserAllowWebapi", ["bob", None]),
                               ("DelegationUserHasAllDomainDelegations", ["1001"]),
                               ("DelegationUserHasAllDomainDelegations", [-1]),
                               ("DelegationUserHasAllDomainDelegations", [1.0]),
                               ("DelegationUserHasAllDomainDelegations", [True]),
                               ("DelegationUserHasAllDomainDelegations", [1 << 32]),
                               ("DelegationRefresh", [None])):
            with self.subTest(method=method, params=params):
                self.assertEqual(self.ask(request(method, *params, id="x")), error(-32602, "x"))
        self.assertEqual(self.ask(b'{"jsonrpc":"2.0","id":1,"method":"DelegationRefresh","params":{}}'), error(-32602, 1))
        self.assertEqual(self.ask(b'{"jsonrpc":"2.0","id":1,"method":"DelegationUserList"}'), error(-32602, 1))
        self.assertEqual(self.ask(request("DelegationUserlist", {}, id=2.5)), error(-32601, 2.5))

    def test_what_is_no_request_is_invalid(self):
        for line in (b"5", b'"x"', b"null", b"{}", b"[]", b'{"jsonrpc":"2.0","id":1}', b'{"id":1,"method":"DelegationRefresh"}',
                     b'{"jsonrpc":2.0,"id":1,"method":"DelegationRefresh"}', b'{"jsonrpc":"2.0","id":1,"method":5}',
                     b'{"jsonrpc":"2.0","id":[],"method":"DelegationRefresh"}',
                     b'{"jsonrpc":"2.0","id":true,"method":"DelegationRefresh"}',
                     b'{"jsonrpc":"2.0","id":1,"method":"DelegationRefresh","params":"x"}'):
            with self.subTest(line=line):
                self.assertEqual(self.ask(line), error(-32600))

    def test_what_is_no_json_is_a_parse_error(self):
        for line in (b"", b"   ", b"{", b"[1,]", b"[1] x", b'{"a":1,"a":2}', b"[1/*c*/]", b"[1] //c", b"['a']", b"[NaN]", b"[+1]",
                     b"[01]", b"[-01]", b"[1.]", b"[.5]", b"[-]", b"[1e]", b"[0x1]", b"[1e999]", b'["\\q"]', b'["\t"]', b'["\x01"]',
                     b'["\\ud800"]', b'["\\udc00"]', b'["\\ud800\\u0041"]', b'["\xff"]', b'["\xc0\xaf"]', b'["\xed\xa0\x80"]',
                     b'["\xf4\x90\x80\x80"]', b'["\xe2\x82"]', b"\xef\xbb\xbf[]", b"\x00", b"[" * 201 + b"]" * 201,
                     b"[" * 1000000, b'{"a":' * 100000):
            with self.subTest(line=line[:40]):
                self.assertEqual(self.ask(line), error(-32700))
        deep = b"[" * 190 + b"]" * 190
        self.assertEqual(self.ask(b'{"jsonrpc":"2.0","id":1,"method":"x","params":[' + deep + b"]}"), error(-32601, 1))
        self.assertEqual(self.ask(b'\t{"jsonrpc" : "2.0", "id":"\xe6\x9d\xb1\\ud83d\\ude00 -0.5E+3","method":"x"} \r'),
                         error(-32601, "東😀 -0.5E+3"))
        self.assert_alive()

    def test_a_notification_is_carried_out_and_not_answered(self):
        self.say(json.dumps({"jsonrpc": "2.0", "method": "DelegationDelegationDelete", "params": [[2]]}).encode())
        self.say(b'{"jsonrpc":"2.0","method":"nope"}')
        self.say(b'{"jsonrpc":"2.0","method":"DelegationUserList","params":[1,2]}')
        self.assertEqual(self.call("DelegationUserAllowWebapi", "bob", "Webapi_Queue_Flush_v1"), {"return": 1})

    def test_a_batch_is_answered_in_one_line(self):
        refresh = {"jsonrpc": "2.0", "method": "DelegationRefresh"}
        answer = self.ask(json.dumps([{**refresh, "id": 1}, refresh, 5, {**refresh, "id": None, "method": "x"}]).encode())
        self.assertEqual(answer, [{"jsonrpc": "2.0", "id": 1, "result": {"return": True}}, error(-32600), error(-32601)])
        self.say(json.dumps([refresh, refresh]).encode())
        self.assert_alive()

    def test_a_line_of_8_mib_is_read_and_a_longer_one_skipped(self):
        frame = request("DelegationDelegationEntryAllList", "")
        fits = frame.replace(b'[""]', b'["' + b"a" * (LONGEST - len(frame)) + b'"]')
        self.assertEqual(len(fits), LONGEST)
        self.assertEqual(self.ask(fits)["result"], {"return": True, "out": []})
        self.assertEqual(self.ask(fits + b" "), error(-32700))
        self.assertEqual(self.ask(b"x" * (3 * LONGEST)), error(-32700))
        self.assert_alive()

    def test_a_last_line_without_newline_is_answered(self):
        self.process.stdin.write(request("DelegationRefresh"))
        self.process.stdin.close()
        self.assertEqual(json.loads(self.process.stdout.readline())["result"], {"return": True})
        self.process.stdin = None

    def test_a_reader_that_goes_away_ends_it(self):
        self.process.stdout.close()
        self.say(request("DelegationRefresh"))
        self.process.stdout = open("/dev/null", "rb")


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main(verbosity=2)
