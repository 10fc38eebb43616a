#!/usr/bin/env python3
"""velarixctl notify with the notifiers of the packages, the few commands of SMTP below as a mail
server, Python's HTTP server, and programs that fail, hang or must not be trusted."""

import datetime
import html
import http.server
import json
import os
import pathlib
import re
import shutil
import signal
import socketserver
import subprocess
import sys
import tempfile
import threading
import time
import unittest

PROGRAM, PACKAGING, SETTINGS = sys.argv.pop(), sys.argv.pop(), sys.argv.pop()
NOTIFIERS = pathlib.Path(PACKAGING) / "notify"
PATIENCE = 30
ANY = "#!/bin/sh\n"


def wait_for(what, look):
    """What `look` gives once it gives something."""
    end = time.monotonic() + PATIENCE
    while not (seen := look()):
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {PATIENCE} s")
        time.sleep(0.02)
    return seen


class Smtp(socketserver.StreamRequestHandler):
    """As much of a mail server as a client needs."""

    def handle(self):
        self.wfile.write(b"220 here\r\n")
        while line := self.rfile.readline():
            if line.upper().startswith(b"DATA"):
                self.wfile.write(b"354 go on\r\n")
                self.server.got.append(b"".join(iter(self.rfile.readline, b".\r\n")).decode())
            self.wfile.write(b"221 bye\r\n" if line.upper().startswith(b"QUIT") else b"250 fine\r\n")


class Hook(http.server.BaseHTTPRequestHandler):
    """Takes what is posted, or answers with the statuses that it is to give first."""

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        status = self.server.statuses.pop(0) if self.server.statuses else 200
        self.server.got.append((status, json.loads(body)))
        self.send_response(status)
        self.end_headers()

    def log_message(self, *_):
        pass


class NotifyTest(unittest.TestCase):
    """A node's files below a directory, and velarixctl notify on it."""

    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="notify-"))
        # A worker may write for a moment longer than the program that is its parent lives.
        self.addCleanup(wait_for, "the end of all", lambda: shutil.rmtree(self.root, ignore_errors=True) or not self.root.exists())
        os.chmod(self.root, 0o755)
        self.etc = self.root / "etc/velarix-ha"
        self.log = self.root / "usr/velarix/log/keeper.log"
        for folder in (self.etc / "notify.d", self.log.parent, self.root / "usr/velarix/bin/ini"):
            folder.mkdir(parents=True)
        shutil.copy(SETTINGS, self.root / "usr/velarix/bin/ini/config.ini")
        (self.root / "usr/velarix/log/velarix.log").touch()
        self.environment = dict(os.environ, TZ="UTC0", VELARIX_NOTIFY_SETTINGS=str(self.etc / "notify.conf"))
        self.running = None
        self.addCleanup(self.stop)

    def server(self, kind, handler):
        server = kind(("127.0.0.1", 0), handler)
        server.got, server.statuses, server.daemon_threads = [], [], True
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return server

    def write(self, path, text, mode=0o644):
        path.write_text(text)
        path.chmod(mode)
        return path

    def notifier(self, name, text, mode=0o755):
        """A program of the test's; what it gets goes to the file NAME below the root."""
        return self.write(self.etc / "notify.d" / name, text.replace("GOT", str(self.root / name)), mode)

    def link(self, name, settings):
        (self.etc / "notify.d" / name).symlink_to(NOTIFIERS / name)
        self.write(self.etc / "notify.conf", settings)

    def command(self, *words):
        return [PROGRAM, "--root", str(self.root), "notify", *words]

    def start(self, *notifiers, limit=1):
        with open(self.root / "said", "ab") as said:
            self.running = subprocess.Popen(self.command("--timeout", str(limit)), env=self.environment, stderr=said)
        for name in notifiers or [path.name for path in (self.etc / "notify.d").iterdir()]:
            wait_for(f"{name} begins", (self.root / "var/lib/velarix-ha/notify" / name).exists)

    def start_any(self):
        self.notifier("any", ANY + "cat >>GOT\n")
        self.start()

    def stop(self, number=signal.SIGTERM):
        if self.running:
            self.running.send_signal(number)
            self.running.wait()
            self.running = None

    def said(self):
        return (self.root / "said").read_text()

    def happens(self, word, detail="here", ago=0):
        """A line of the keeper's."""
        at = datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(seconds=ago)
        with open(self.log, "a") as log:
            log.write(f"{at.isoformat(timespec='milliseconds')} ha-web[12] {word}: {detail}\n")

    def arrives_within_a_second(self, got):
        """The best of some: the machine may have other work."""
        delays = []
        while not delays or (min(delays) > 1 and len(delays) < 5):
            begin = time.monotonic()
            self.happens("died", "exit status 1")
            wait_for("the event", lambda: len(got()) > len(delays))
            delays.append(time.monotonic() - begin)
        self.assertLess(min(delays), 1)

    def got(self, name):
        """The events that a notifier has written down."""
        path = self.root / name
        return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []

    def details(self, name):
        return [event["detail"] for event in self.got(name)]

    def test_an_event_reaches_a_program_within_a_second_as_json_and_in_its_environment(self):
        self.notifier("any", ANY + 'cat >>GOT\nenv | grep ^VELARIX_ >>GOT.env\n')
        self.start()
        self.arrives_within_a_second(lambda: self.got("any"))
        event = self.got("any")[0]
        self.assertEqual((event["event"], event["subject"], event["word"], event["severity"], event["node"]),
                         ("keeper", "ha-web", "died", "problem", "192.0.2.1"))
        lines = self.root / "any.env"
        wait_for("the environment", lambda: lines.exists() and "VELARIX_DETAIL=exit status 1\n" in lines.read_text())

    def test_the_agents_log_is_followed(self):
        self.start_any()
        now = datetime.datetime.utcnow().isoformat(sep=" ", timespec="milliseconds")[:21]
        with open(self.root / "usr/velarix/log/velarix.log", "a") as log:
            log.write(f'{now} [77:0][CAgent:38] <I> Slave CAgent()\n')
        self.assertEqual(wait_for("the event", lambda: self.got("any"))[0]["event"], "agent-started")

    def test_mail_reaches_a_mail_server_within_a_second(self):
        smtp = self.server(socketserver.ThreadingTCPServer, Smtp)
        self.write(self.root / "sendmail", ANY + f"exec /usr/bin/msmtp --host=127.0.0.1 --port={smtp.server_address[1]} "
                   "--from=ha@example.com \"$@\"\n", 0o755)
        self.environment["PATH"] = f"{self.root}:{self.environment['PATH']}"
        self.link("mail", "MAIL_TO=oncall@example.com,second@example.com\n")
        self.start()
        self.happens("started", "not wanted")
        self.arrives_within_a_second(lambda: smtp.got)
        mail = smtp.got[0]
        self.assertIn("To: oncall@example.com,second@example.com\r\n", mail)
        self.assertRegex(mail, r"\r\nSubject: \[velarix\] \S+: ha-web died: exit status 1\r\n")

    def test_a_webhook_gets_each_form_within_a_second(self):
        hook = self.server(http.server.ThreadingHTTPServer, Hook)
        detail = 'a "quoted" \\ <!channel> & path'
        text = "ha-web died: " + detail
        wanted = {"json": lambda body: body["text"],
                  "slack": lambda body: re.sub("^[^:]*: ", "", html.unescape(body["text"])).removesuffix(" (problem)"),
                  "teams": lambda body: re.sub("^[^:]*: ", "", body["attachments"][0]["content"]["body"][0]["text"]).removesuffix(" (problem)"),
                  "alertmanager": lambda body: body[0]["annotations"]["summary"]}
        self.link("webhook", "")
        self.start()
        for count, (form, text_of) in enumerate(wanted.items(), 1):
            self.write(self.etc / "notify.conf", f"WEBHOOK_URL=http://127.0.0.1:{hook.server_address[1]}/a\nWEBHOOK_FORM={form}\n")
            self.happens("died", detail)
            wait_for(form, lambda count=count: len(hook.got) == count)
            self.assertEqual(text_of(hook.got[-1][1]), text)
            self.assertNotIn("<!" if form == "slack" else "&lt;", json.dumps(hook.got[-1][1]))
        self.assertEqual(hook.got[-1][1][0]["labels"]["alertname"], "velarix-keeper")
        self.arrives_within_a_second(lambda: hook.got[len(wanted):])

    def test_a_receiver_that_is_busy_gets_it_again_and_one_that_refuses_does_not(self):
        hook = self.server(http.server.ThreadingHTTPServer, Hook)
        hook.statuses = [503, 400]
        self.link("webhook", f"WEBHOOK_URL=http://127.0.0.1:{hook.server_address[1]}/\n")
        self.start()
        self.happens("died", "first")
        self.happens("died", "second")
        wait_for("the second", lambda: len(hook.got) == 3)
        self.assertEqual([(status, event["detail"]) for status, event in hook.got],
                         [(503, "first"), (400, "first"), (200, "second")])

    def test_one_that_hangs_and_one_that_fails_hold_up_nobody(self):
        self.notifier("hangs", ANY + "echo $$ >>GOT.pids\nsleep 600 & echo $! >>GOT.pids\nsleep 600\n")
        self.notifier("yes", ANY + "exec yes\n")
        self.notifier("fails", ANY + "echo no >&2\n[ -e GOT.well ] || exit 3\ncat >>GOT\n")
        self.notifier("well", ANY + "cat >>GOT\n")
        self.start()
        for number in range(3):
            self.happens("died", str(number))
        wait_for("all of them", lambda: self.details("well") == ["0", "1", "2"])
        wait_for("the retry", lambda: re.search("hangs: keeper of.*did not end in time; the next try follows in 1.0 s", self.said()))
        self.assertIn("fails: keeper of", self.said())
        wait_for("the end of one that prints without a pause", lambda: re.search("yes: keeper of.*did not end in time", self.said()))
        self.assertIn("ended with 3: no; the next try follows in 1.0 s", self.said())
        (self.root / "fails.well").touch()
        wait_for("in order", lambda: self.details("fails") == ["0", "1", "2"])
        pids = (self.root / "hangs.pids").read_text().split()[:2]
        wait_for("nothing is left of the first try",
                 lambda: not any(pathlib.Path(f"/proc/{pid}/status").exists() and "Z" not in pathlib.Path(f"/proc/{pid}/stat").read_text().split()[2] for pid in pids))
        self.assertEqual(self.details("hangs"), [])

    def test_of_very_many_that_were_missed_the_oldest_are_dropped_and_it_says_so(self):
        self.start_any()
        self.stop()
        for number in range(1003):
            self.happens("died", str(number))
        self.start()
        wait_for("the last", lambda: "1002" in self.details("any"))
        self.assertEqual(self.details("any"), [str(number) for number in range(3, 1003)])
        self.assertIn("any: 3 older events are dropped: too many have happened meanwhile", self.said())

    def test_after_a_crash_it_goes_on_where_it_was_and_forgets_nothing(self):
        self.happens("died", "before the first start", ago=5)
        self.start_any()
        self.happens("died", "1")
        wait_for("the first", lambda: self.details("any") == ["1"])
        position = self.root / "var/lib/velarix-ha/notify/any"
        wait_for("it is remembered", lambda: '"died\\"' in position.read_text())
        self.stop(signal.SIGKILL)
        self.happens("died", "2")
        self.log.rename(self.log.with_name("keeper.log.1"))
        self.happens("died", "3")
        self.start()
        wait_for("what was missed", lambda: self.details("any") == ["1", "2", "3"])

    def test_what_a_failing_notifier_missed_comes_in_order_after_a_rotation(self):
        self.notifier("any", ANY + "[ -e GOT.well ] || exit 1\ncat >>GOT\n")
        self.start()
        self.happens("died", "1")
        wait_for("the failure", lambda: "ended with 1" in self.said())
        self.happens("died", "2")
        # As the package's logrotate does it.
        self.assertNotIn("copytruncate", (NOTIFIERS.parent / "service/velarix-ha.logrotate").read_text().split("keeper.log {")[1])
        self.log.rename(self.log.with_name("keeper.log.1"))
        self.happens("died", "3")
        (self.root / "any.well").touch()
        wait_for("all of them", lambda: self.details("any") == ["1", "2", "3"])

    def test_what_both_logs_tell_of_the_time_without_it_comes_in_one_order(self):
        self.start_any()
        self.stop()
        at = datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(seconds=1)
        self.happens("died", "1", ago=-0.5)
        with open(self.root / "usr/velarix/log/velarix.log", "a") as log:
            log.write(f'{at.isoformat(sep=" ", timespec="milliseconds")[:21]} [77:0][CAgent:38] <I> Slave CAgent()\n')
        self.happens("died", "2", ago=-1.5)
        self.start()
        wait_for("all of them", lambda: len(self.got("any")) == 3)
        self.assertEqual([event["event"] for event in self.got("any")], ["keeper", "agent-started", "keeper"])

    def test_who_disables_a_notifier_ends_its_program_and_what_a_program_leaves_goes_on(self):
        self.notifier("leaves", ANY + "cat >>GOT\n(sleep 0.2; echo >GOT.late) >/dev/null 2>&1 &\n")
        self.notifier("long", ANY + "echo $$ >GOT.pid; exec sleep 600\n")
        self.start(limit=60)
        self.happens("died", "1")
        wait_for("what it left", (self.root / "leaves.late").exists)
        pid = wait_for("it runs", lambda: (self.root / "long.pid").exists() and (self.root / "long.pid").read_text().strip())
        (self.etc / "notify.d/long").unlink()
        wait_for("it ends", lambda: not pathlib.Path(f"/proc/{pid}").exists() or " Z " in pathlib.Path(f"/proc/{pid}/stat").read_text())

    def test_a_crash_between_taking_and_remembering_gives_an_event_twice(self):
        self.notifier("any", ANY + "cat >>GOT\n[ -e GOT.killed ] || { touch GOT.killed; kill -9 $PPID; }\n")
        self.start()
        self.happens("died", "1")
        wait_for("it comes again", lambda: len(self.details("any")) >= 2)
        self.assertEqual(set(self.details("any")), {"1"})

    def test_what_is_a_day_old_is_dropped_and_beside_a_damaged_position_the_present_counts(self):
        self.start_any()
        self.stop()
        position = self.root / "var/lib/velarix-ha/notify/any"
        long_ago = {"time": 0, "event": ""}
        position.write_text(json.dumps({"agent": long_ago, "keeper": long_ago}))
        self.happens("died", "old", ago=90000)
        self.happens("died", "new", ago=80000)
        self.start()
        wait_for("the new one", lambda: self.details("any") == ["new"])
        self.assertIn("was not taken for a day and is dropped", self.said())
        self.stop()
        position.write_text("{")
        self.start()
        wait_for("the report", lambda: "is damaged; it goes on from now" in self.said())
        self.happens("died", "newer")
        wait_for("the event", lambda: self.details("any") == ["new", "newer"])

    def test_without_a_position_and_without_the_keepers_log_it_says_so_and_goes_on(self):
        (self.root / "var/lib/velarix-ha/notify/any").mkdir(parents=True)
        self.log.mkdir()
        self.start_any()
        wait_for("the position's report", lambda: "any: cannot write " in self.said())
        wait_for("the log's report", lambda: f"any: cannot read {self.log}: " in self.said())
        self.log.rmdir()
        self.happens("died", "1")
        self.happens("died", "2")
        wait_for("both, once", lambda: self.details("any") == ["1", "2"])

    def test_only_what_root_alone_may_change_is_run_also_when_it_comes_late(self):
        self.notifier("open", ANY + "cat >>GOT\n", 0o777)
        os.chown(self.notifier("foreign", ANY + "cat >>GOT\n"), 1, 1)
        self.notifier("disabled", ANY + "cat >>GOT\n", 0o644)
        self.notifier("any.dpkg-new", ANY + "cat >>GOT\n")
        self.notifier("well", ANY + "cat >>GOT\n")
        self.start("well")
        self.notifier("late", ANY + "cat >>GOT\n")
        wait_for("one that came late begins", (self.root / "var/lib/velarix-ha/notify/late").exists)
        self.happens("died", "1")
        wait_for("the sound ones", lambda: self.details("well") == self.details("late") == ["1"])
        for name in ("open", "foreign", "disabled", "any.dpkg-new"):
            self.assertEqual(self.got(name), [], name)
        self.assertIn("open is not run: ", self.said())
        self.assertIn("foreign is not run: ", self.said())
        self.assertNotIn("disabled", self.said())

    def test_the_test_tells_what_came_of_it(self):
        self.notifier("any", ANY + "cat >>GOT\n")
        self.notifier("bad", ANY + "echo no such host >&2; exit 7\n")
        done = subprocess.run(self.command("--test"), env=self.environment, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout), (1, "any: taken\nbad: ended with 7: no such host\n"))
        self.assertEqual(self.got("any")[0]["event"], "test")


if __name__ == "__main__":
    if os.geteuid() != 0:
        os.execvp("unshare", ["unshare", "--map-root-user", "--map-auto", sys.executable, *sys.argv, SETTINGS, PACKAGING, PROGRAM])
    unittest.main()
