"""What happens to the camera and who watches, as a function of a seed. Pure."""
import itertools
import random
from dataclasses import dataclass

from rules import STALL_MS

QUICK = (0, 1500)  # the connection is reset, and the decoder ends with it
DECODER_PATIENCE = (4500, STALL_MS)  # it ends after 5 s of silence
WATCHDOG = (STALL_MS + 1, STALL_MS)  # it lives and brings nothing; the slack comes on top

# Of the local camera, and what follows which.
FIRST_STREAM = "stream2"
STREAMS = {"resolution": {"stream2": "stream1", "stream1": "stream2"},
           "codec": {"stream2": "h265", "stream1": "h265", "h265": FIRST_STREAM}}


@dataclass(frozen=True)
class Fault:
    """holds_s: for how long at least and at most; gives_up_ms: see rules.FaultSpan."""
    holds_s: tuple
    gives_up_ms: tuple | None


# What each does on the wire is told beside UnreliableCamera's methods.
FAULTS = {
    "drop": Fault((0, 0), QUICK),
    "short freeze": Fault((0.5, 1.5), None),
    "freeze": Fault((2.5, 4), None),
    "long freeze": Fault((8, 14), DECODER_PATIENCE),
    "resolution": Fault((0, 0), None),
    "codec": Fault((0, 0), WATCHDOG),
    "garbled media": Fault((8, 12), WATCHDOG),
    "garbage answers": Fault((2, 10), QUICK),
    "refused": Fault((2, 10), QUICK),
    "absent": Fault((2, 10), QUICK),
    "exhausted": Fault((60, 60), QUICK),  # refused until the attempts are used up
}
GUESTS = (None, "plain", "eager", "crashing")


@dataclass(frozen=True)
class Step:
    """A fault, and who joins the viewer meanwhile. settles: afterwards the failures are forgotten."""
    fault: str
    holds_s: float
    guest: str | None = None
    settles: bool = True


@dataclass(frozen=True)
class Round:
    """One demand, from the first viewer to the last. farewell: "released" or "crashing"."""
    steps: tuple
    farewell: str
    hidden: bool
    rest_s: float


def short_rounds():
    """Each fault once. Settles only where the failure before would make the next wait longer."""
    def at_once(fault, holds_s, guest=None):
        return Step(fault, holds_s, guest, settles=False)

    return [
        Round((at_once("drop", 0), at_once("short freeze", 1.2), at_once("resolution", 0, "plain")), "released", False, 3),
        Round((at_once("freeze", 3.5), at_once("long freeze", 8, "crashing"), Step("garbage answers", 2)),
              "released", True, 3),
        Round((at_once("garbled media", 8), Step("refused", 2, "eager"), Step("absent", 2), Step("codec", 0)),
              "crashing", False, 3),
    ]


def rounds(seed):
    """Without end. Every fault comes before any comes again."""
    chance = random.Random(seed)

    def bag(items):
        while True:
            yield from chance.sample(items, len(items))

    kinds = bag([kind for kind in FAULTS if kind != "exhausted"])
    guests, farewells = bag(GUESTS), bag(("released", "released", "crashing"))
    for number in itertools.count(1):
        steps = []
        for kind in itertools.islice(kinds, chance.randint(2, 4)):
            steps.append(Step(kind, round(chance.uniform(*FAULTS[kind].holds_s), 1), next(guests),
                              chance.random() < 0.7))
        steps.sort(key=lambda step: step.fault == "codec")  # the other codec comes in one size only
        if number % 6 == 0:
            steps.append(Step("exhausted", FAULTS["exhausted"].holds_s[0], None))
        yield Round(tuple(steps), next(farewells), number % 4 == 0, 4)
