"""The package as a program meets it: import, the end of the process, threads, pages, type checkers."""

import doctest
import os
import pathlib
import pydoc
import re
import subprocess
import sys
import threading

import pytest

import orlan_epm

ROOT = pathlib.Path(__file__).parents[2]
PACKAGE = pathlib.Path(orlan_epm.__file__).parent


def run(program, *, status=0, **environment):
    done = subprocess.run([sys.executable, "-c", program], env={**os.environ, **environment}, capture_output=True,
                          text=True)
    assert done.returncode == status, done.stderr
    return done


def test_import_does_little():
    """It neither loads the library nor reads the description, which is what takes time."""
    run("import sys, time\nbegin = time.process_time()\nimport orlan_epm\ntook = time.process_time() - begin\n"
        "assert 'json' not in sys.modules and orlan_epm.catalogue.document.cache_info().currsize == 0\n"
        "assert took < 1, took", ORLAN_EPM_LIBRARY="/nowhere")


def test_a_missing_library_is_named():
    failed = run("from orlan_epm import Acl\nAcl()", status=1, ORLAN_EPM_LIBRARY="/nowhere.so")
    assert "LoadError: the library cannot be loaded: /nowhere.so" in failed.stderr
    failed = run("import orlan_epm\norlan_epm.load()\norlan_epm.load()", status=1)
    assert "LoadError: the library has been loaded already" in failed.stderr


def test_names():
    classes = [n for n in dir(orlan_epm) if hasattr(getattr(orlan_epm, n), "c_name")]
    assert len(classes) == len(orlan_epm.catalogue.document()["types"])
    assert orlan_epm.type_named("Acl") is orlan_epm.type_named("orlan_ial_svm_acl_data") is orlan_epm.Acl
    with pytest.raises(LookupError, match="did you mean Acl"):
        orlan_epm.type_named("Acll")
    with pytest.raises(AttributeError):
        orlan_epm.Acll
    assert "|      Place of the entry in the list." in pydoc.plain(pydoc.render_doc(orlan_epm.Acl))
    assert "COA_BOUNCE_HOST_PORT = 0: Bounces the port." in orlan_epm.CoaRequestType.__doc__


def test_the_process_ends_well():
    """Records in globals, in cycles with each other and their Domain, in exit handlers and in threads' defaults."""
    done = run("""
import atexit, gc, threading, orlan_epm
from orlan_epm import *
from orlan_epm import Acl, ClientAcl, AclFeatureContext, Message
class Node:
    def __init__(self, **all): self.__dict__.update(all, me=self)
    def __del__(self):
        for use in (lambda: self.owner.bm_feat_ctx_list.clear(), lambda: self.view.handle, lambda: self.owner.marshal(),
                    lambda: ClientAcl(self.domain)):
            try: use()
            except orlan_epm.Error: pass
def cycle():
    with Domain(tracked=True) as D:
        owner = ClientAcl(bm_feat_ctx_list=[AclFeatureContext(handle=1)])
        return Node(domain=D, owner=owner, view=owner.bm_feat_ctx_list[0])
cycle(); cycle(); gc.collect()
kept = cycle()
message = Message(acl_data=Acl(acl_name="x"))
atexit.register(lambda: print(message.acl_data.acl_name, kept.view.handle))
thread = threading.Thread(target=lambda: globals().update(left=Acl(acl_name="y")))
thread.start(); thread.join()
left.sequence = 5
""")
    assert done.stdout == "x 1\n" and done.stderr == ""


def test_threads_have_domains_of_their_own():
    seen, failures = set(), []

    def work():
        try:
            seen.add(orlan_epm.current_domain())
            for n in range(200):
                message = orlan_epm.Message(acl_data=orlan_epm.Acl(acl_name="x" * n, sequence=n))
                assert orlan_epm.Message.from_json(message.to_json()) == message
        except BaseException as failure:
            failures.append(failure)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures and len(seen) == 4 and orlan_epm.current_domain() not in seen


def test_pages():
    page = (ROOT / "docs" / "python.md").read_text()
    examples = "\n".join(re.findall(r"```pycon\n(.*?)```", page, re.DOTALL))
    for text in (examples, orlan_epm.__doc__):
        test = doctest.DocTestParser().get_doctest(text, {}, "python.md", None, 0)
        assert len(test.examples) > 2
        assert doctest.DocTestRunner().run(test).failed == 0


def test_type_checkers(tmp_path):
    """The package, the example, and a program whose mistakes must all be found: an unused remark is an error too."""
    programs = [ROOT / "examples/python_message/python_message.py", ROOT / "tests/python/typed.py"]
    environment = {**os.environ, "MYPYPATH": str(PACKAGE.parent)}
    environment.pop("LD_PRELOAD", None)
    done = subprocess.run([os.environ["ORLAN_EPM_MYPY"], "--strict", "--cache-dir", tmp_path, PACKAGE, *programs],
                          env=environment, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout
