#!/usr/bin/env python3
"""A worker of the real agent that gets no memory."""

import os
import pathlib
import sys

from agent import HOME, AgentCase, events, main, wait_for

SHIM = sys.argv[3]
# In the order in which the agent starts them, with what each says every second here.
WORKERS = ("D ProcessChecker:103 ", "E CHeartReciver:146 ", "E CHeartSender:79 ")


class NoMemory(AgentCase):
    """The library's threads swallow what nobody catches: such a worker is gone without a word."""

    def check(self, worker):
        self.configure(PROCESS_CHECK__PROCESS_CHECK_CYCLE="1")
        agent = self.start(env=os.environ | {"LD_PRELOAD": SHIM, "VELARIX_NO_MEMORY": f"{HOME}/no-memory."})
        thread = sorted(os.listdir(agent.proc("task")), key=int)[1 + worker]
        pathlib.Path(f"{HOME}/no-memory.{thread}").touch()
        wait_for("the end of the thread", lambda: not agent.proc(f"task/{thread}").exists())
        seen, errors = len(events()), agent.errors()

        def since():
            return [line for line in WORKERS if any(event.startswith(line) for event in events()[seen:])]
        wait_for("the other workers", lambda: len(since()) == 2)
        self.assertNotIn(WORKERS[worker], since())
        self.assertIsNone(agent.end(0))
        self.assertNotIn("alloc", errors)

    def test_ends_the_checker_without_a_word(self):
        self.check(0)

    def test_ends_the_receiver_without_a_word(self):
        self.check(1)

    def test_ends_the_sender_without_a_word(self):
        self.check(2)


if __name__ == "__main__":
    main(3)
