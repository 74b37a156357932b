# SPDX-License-Identifier: MIT
"""The package on stores of its own. ZRFS_LIBRARY names the library that was built."""
import copy
import datetime
import math
import pathlib
import pickle
import re
import struct
import subprocess
import sys

import pytest

import zrfs


@pytest.fixture
def path(tmp_path):
    return str(tmp_path / "tëst-\U0001F600.fbr")


VALUES = {"number": 42, "": "unnamed", "large": 1 << 40, "text": "grüße \U0001F600", "lone": "\ud800",
          "empty": "", "bytes": bytes(range(256)) * 40, "none": b"", "list": ["a", "bc"], "nobody": []}


def test_values_come_back_as_they_went_in(path):
    with zrfs.open(path, write=True) as store:
        store["Software\\Hello"].update(VALUES)
    with zrfs.open(path) as store:
        found = dict(store["software\\HELLO"])
    expected = dict(VALUES)
    expected["(Default)"] = expected.pop("")
    assert found == expected


@pytest.mark.parametrize("value, type_, data", [
    (7, zrfs.Type.DWORD, b"\7\0\0\0"), (1 << 32, zrfs.Type.QWORD, b"\0\0\0\0\1\0\0\0"),
    ("é", zrfs.Type.SZ, b"\xe9\0\0\0"), (b"\1", zrfs.Type.BINARY, b"\1"),
    (["a"], zrfs.Type.MULTI_SZ, b"a\0\0\0\0\0"), (zrfs.Value(77, b"x"), 77, b"x")])
def test_types_and_bytes(path, value, type_, data):
    with zrfs.open(path, write=True) as store:
        store["k"]["v"] = value
        assert store["k"].value("v") == zrfs.Value(type_, data)


@pytest.mark.parametrize("value", [-1, 1 << 64, 1.5, ["a", ""], ["a\0b"], [1], None, "a\0",
                                   "\ud83d\ude00", zrfs.Value(1, "a")])
def test_what_has_no_type_is_refused_and_changes_nothing(path, value):
    with zrfs.open(path, write=True) as store:
        with pytest.raises((TypeError, ValueError, OverflowError)):
            store["k"]["v"] = value
        assert "k" not in store


@pytest.mark.parametrize("type_, data", [
    (zrfs.Type.DWORD, b"abc"), (zrfs.Type.SZ, b"odd"), (zrfs.Type.QWORD, b""), (99, b"\1\2")])
def test_data_that_does_not_fit_its_type_is_bytes(path, type_, data):
    with zrfs.open(path, write=True) as store:
        store["k"]["v"] = zrfs.Value(type_, data)
        assert store["k"]["v"] == data


def test_what_is_read_can_be_written_with_zeros_inside(path):
    with zrfs.open(path, write=True) as store:
        key = store["k"]
        key["text"] = zrfs.Value(zrfs.Type.SZ, b"a\0\0\0b\0\0\0")
        key["list"] = zrfs.Value(zrfs.Type.MULTI_SZ, b"a\0\0\0\0\0b\0\0\0\0\0")
        assert dict(key) == {"text": "a\0b", "list": ["a", "", "b"]}
        store["copy"].update(key)
        assert all(store["copy"].value(name) == key.value(name) for name in key)
    # A hive may have names with one, by which nothing can be asked for.
    with zrfs.open(path + ".hiv", method=zrfs.Method.OFFLINE) as hive:
        hive["k"].update(aXb=1, c=2)
    file = pathlib.Path(path + ".hiv")
    file.write_bytes(file.read_bytes().replace(b"aXb", b"a\0b"))
    with zrfs.open(path + ".hiv", method=zrfs.Method.OFFLINE) as hive:
        with pytest.warns(UserWarning, match="left out"):
            assert dict(hive["k"]) == {"c": 2}


def test_keys(path):
    with zrfs.open(path, write=True) as store:
        for name in ("b", "a", "c"):
            (store["top"] / name).create()["v"] = name
        assert [key.path for key in store["top"].subkeys()] == ["top\\a", "top\\b", "top\\c"]
        assert (store["top\\a"].rename("z"))["v"] == "a"
        store["top\\b"].delete()
        with pytest.raises(ValueError, match="root"):
            store["\\"].delete()
        assert store["top"].to_dict() == {"values": {}, "keys": {
            "c": {"values": {"v": "c"}, "keys": {}}, "z": {"values": {"v": "a"}, "keys": {}}}}
        age = datetime.datetime.now(datetime.timezone.utc) - store["top"].modified()
        assert abs(age) < datetime.timedelta(minutes=5)
        assert "top\\c" in store and "top\\b" not in store and "v" in store["top\\c"]
        store.compact()


def test_a_time_is_one_of_a_calendar_or_refused(path):
    for date in (45291.25, math.nan):
        zrfs.open(path, write=True).close()
        with open(path, "r+b") as file:
            file.seek(2 * 512 + 60)  # in the root's page
            file.write(struct.pack("<d", date))
        with zrfs.open(path) as store:
            if date == date:
                assert store[""].modified().isoformat() == "2023-12-31T06:00:00+00:00"
            else:
                with pytest.raises(zrfs.CorruptError):
                    store[""].modified()


def test_a_store_and_a_key_are_mappings(path):
    with zrfs.open(path, write=True) as store:
        assert store and list(store) == [] and len(store) == 0
        store["b\\below"]["v"] = 1
        store["a"].update(x=1, y=2)
        assert list(store) == list(store.keys()) == ["a", "b"] and len(store) == 2
        assert {name: dict(key) for name, key in store.items()} == {"a": {"x": 1, "y": 2}, "b": {}}
        assert store.get("c") is None and store.get("b\\below")["v"] == 1
        assert list(store["a"]) == ["x", "y"] and store["a"].pop("x") == 1 and len(store["a"]) == 1
        assert store == store and len({store}) == 1
        with pytest.raises(KeyError):
            list(store["c"])
    with pytest.raises(ValueError, match="closed"):
        list(store)


def test_keys_stand_beside_the_values_of_their_names(path):
    with zrfs.open(path, write=True) as store:
        store["top"]["way"] = 1
        (store["top"] / "way" / "end").create()
        with pytest.raises(zrfs.NotFoundError):
            store["top\\way\\end\\v"].delete()
        with pytest.raises(ValueError):
            store["top\\way"].rename("a\\b")
        assert store["top"].to_dict() == {"values": {"way": 1}, "keys": {
            "way": {"values": {}, "keys": {"end": {"values": {}, "keys": {}}}}}}


def test_failures_are_exceptions_of_their_own(path):
    with zrfs.open(path) as store:
        with pytest.raises(KeyError, match=r"nowhere"):
            store["nowhere"]["v"]
        for wrong in (lambda: store[5], lambda: store[""][5], lambda: store["k"] / 5):
            with pytest.raises(TypeError, match="str|operand"):
                wrong()
        with pytest.raises(zrfs.LockError, match="write=True") as caught:
            store["k"]["v"] = 1
        assert caught.value.status == zrfs.Status.LOCK_FAILED
        for kind in (zrfs.Error, zrfs.NotFoundError, zrfs.LockError, zrfs.DeniedError):
            error = kind("x", 15)
            there = pickle.loads(pickle.dumps(error))  # as a pool of processes hands it on
            assert (type(there), str(there), there.status) == (kind, str(error), 15)
        odd = store["\ud83d\r"]
        with pytest.raises(zrfs.NotFoundError) as caught:
            odd["v"]
        assert all(r"\\ud83d\r" in str(one) for one in (odd, caught.value))
        with pytest.raises(ValueError, match=r"in '\\ud83d\\ude00',"):
            odd["v"] = "\ud83d\ude00"
        with pytest.raises(ValueError):
            store["a\0b"].create()
        assert "a\0b" not in store and "a\0b" not in store[""] and store[""].get("a\0b") is None
        with pytest.raises(zrfs.NotFoundError):
            del store[""]["a\0b"]
        with store.lock():
            store["k"]["v"] = 1
            with pytest.raises(zrfs.NotFoundError):
                del store["k"]["w"]
            del store["k"]["v"]
    with pytest.raises(ValueError, match="closed"):
        store["k"].create()
    with pytest.raises(zrfs.NotFoundError):
        zrfs.check(path + ".missing")
    pathlib.Path(path + ".py").write_text("no store", "utf-8")
    with pytest.raises(zrfs.Error, match="it is no container"):
        zrfs.check(path + ".py")
    for name, method, advice in (("|x.fbr", 4, "SERVER|PATH"), (path, 4, "SERVER|PATH"),
                                 (path + ".none|x.fbr", 4, "no server may answer"),
                                 (str(pathlib.Path(path).parent), 1, "that is a folder"),
                                 (path, 5, "FILE!NAME")):
        with pytest.raises(zrfs.Error, match=re.escape(advice)):
            zrfs.open(name, method=method)
    header = (pathlib.Path(__file__).parents[2] / "include" / "ZrFsTypes.h").read_text("utf-8")
    for text, name in re.findall(r'"(.*)", +/\* FSSTATUS_(\w+) \*/', header):
        assert f": {text} (FSSTATUS_{name})" in str(zrfs.Error("open x", zrfs.Status[name]))


def test_the_lock_keeps_others_out_and_ends_with_the_store(path):
    other = (f"import zrfs\nwith zrfs.open({path!r}, write=True) as s:\n"
             "  for i in range(50):\n    s['n']['v'] = s['n'].get('v', 0) + 1\n")
    runs = [subprocess.Popen([sys.executable, "-c", other]) for _ in range(4)]
    assert [run.wait() for run in runs] == [0] * 4
    with zrfs.open(path) as store, store.lock(zrfs.Lock.READ):
        assert store["n"]["v"] == 200


def test_check_finds_damage_and_repair_mends_it(path):
    with zrfs.open(path, write=True) as store:
        for i in range(100):
            store[f"key{i}"]["v"] = bytes(1000)
    assert zrfs.check(path) == []
    with open(path, "r+b") as file:
        file.seek(0, 2)
        middle = file.tell() // 2 // 512 * 512
        file.seek(middle)
        file.write(b"\xff" * 4096)
    assert zrfs.check(path) != []
    zrfs.check(path, repair=True)
    assert zrfs.check(path) == []
    with zrfs.open(path) as store:
        assert list(store[""].subkeys()) != []


def test_a_store_is_one_object_and_its_path_may_be_one(path):
    with zrfs.open(pathlib.Path(path), write=True) as store:
        store["k"]["v"] = 1
        for copied in (copy.copy, copy.deepcopy, pickle.dumps):
            with pytest.raises(TypeError):
                copied(store)
        assert store["k"]["v"] == 1
