/* The hand-off over one named pipe, with two clients, one host, and deaths anywhere.
 *
 * -DPRESENCE      with the presence socket (docs/hand-off.md); without: the pipe alone
 * -DCLIENTS_DIE   clients may be killed at any step
 * -DHOST_DIES     the host may be killed at any step
 * -DIN_TURN       the second client starts when the first has ended
 *
 * Checked: whoever is answered gets the answer to its own request; the host asks its user only
 * about whole requests of clients that are there; and no end but one where the host waits for a
 * request and every client has ended. scripts/check runs it. */

#define CLIENTS 2

mtype = { request, answer };

/* The pipe. A blocked opener counts too; what is in it is lost when nobody has it open. */
chan pipe = [6] of { mtype, byte };
byte readers, writers;        /* open or opening */
byte readOpens, writeOpens;   /* ever */

/* What the kernel tells of the connections. */
bool gone[CLIENTS];
bool whole[CLIENTS];          /* the client has said that its request is */
bool hostGone;
byte ended;

#ifdef PRESENCE
chan arrivals = [CLIENTS] of { byte };
byte turn;                    /* of client turn - 1 */
bool givesTurn, told;
bool opening, held;           /* of the host's own opens */
#endif

/* Waits afterwards until an open of the other side was seen, be it one that is closed again. */
inline openToRead() {
    atomic { readers++; readOpens++; reads = true;
        if :: writers > 0 -> seen = writeOpens - 1 :: else -> seen = writeOpens fi }
}
inline openToWrite() {
    atomic { writers++; writeOpens++; writes = true;
        if :: readers > 0 -> seen = readOpens - 1 :: else -> seen = readOpens fi }
}
inline closeRead() {
    readers--;
    if
    :: readers + writers == 0 -> do :: pipe?_,_ :: empty(pipe) -> break od
    :: else
    fi
}
inline closeWrite() {
    writers--;
    if
    :: readers + writers == 0 -> do :: pipe?_,_ :: empty(pipe) -> break od
    :: else
    fi
}
inline hold() {
    if
    :: !held -> held = true; readers++; writers++; readOpens++; writeOpens++
    :: else
    fi
}
inline unhold() {
    if
    :: held -> held = false; writers--; closeRead()
    :: else
    fi
}

#ifdef CLIENTS_DIE
#define CLIENT_MAY_DIE :: true -> goto dying;
#else
#define CLIENT_MAY_DIE
#endif
#ifdef HOST_DIES
#define HOST_MAY_DIE :: true -> goto dying;
#else
#define HOST_MAY_DIE
#endif
#ifdef PRESENCE
#define HOST_IS_GONE :: hostGone -> goto dying;
#else
#define HOST_IS_GONE
#endif

proctype Client(byte me) {
    bool reads, writes;
    byte seen, whose, pieces;
    mtype kind;

#ifdef IN_TURN
    ended == me;
#endif
#ifdef PRESENCE
    arrivals!me;
    if
    :: turn == me + 1
    HOST_IS_GONE
    CLIENT_MAY_DIE
    fi;
#endif
    openToWrite();
    if
    :: readOpens != seen
    HOST_IS_GONE
    CLIENT_MAY_DIE
    fi;
    do                        /* a request in two pieces */
    :: pieces < 2 ->
        if
        :: atomic { readers > 0 -> pipe!request,me }; pieces++
        :: readers == 0 -> goto dying       /* EPIPE */
        CLIENT_MAY_DIE
        fi
    :: else -> break
    od;
    atomic { writes = false; closeWrite() };
    whole[me] = true;
    openToRead();
    if
    :: writeOpens != seen
    HOST_IS_GONE
    CLIENT_MAY_DIE
    fi;
    do
    :: atomic { pipe?kind,whose -> assert(kind == answer && whose == me) }
    :: atomic { empty(pipe) && writers == 0 -> break }
    HOST_IS_GONE
    CLIENT_MAY_DIE
    od;

dying:  /* or done; the connection may go before the pipe, or after it */
    if
    :: gone[me] = true
    :: skip
    fi;
    atomic {
        if :: writes -> writes = false; closeWrite() :: else fi;
        if :: reads -> reads = false; closeRead() :: else fi
    };
    atomic { gone[me] = true; ended++ }
}

#ifdef PRESENCE
/* The host's polling thread. */
proctype Watcher() {
    byte next;
end:
    do
    :: atomic { !hostGone && givesTurn && turn == 0 && nempty(arrivals) ->
            arrivals?next; turn = next + 1; told = false }
    :: atomic { !hostGone && turn != 0 && gone[turn - 1] && !told ->
            told = true;
            if :: opening -> hold() :: else fi }
    od
}
#endif

proctype Host() {
    bool reads, writes;
    byte seen, whose, who, pieces;
    mtype kind;

receiving:
    skip;
#ifdef PRESENCE
    atomic { opening = true; givesTurn = true;
        if :: turn != 0 && gone[turn - 1] -> hold() :: else fi };
#endif
    openToRead();
end:
    if
    :: writeOpens != seen
    HOST_MAY_DIE
    fi;
#ifdef PRESENCE
    atomic { opening = false; unhold() };
#endif
    pieces = 0;
    do
    :: atomic { pipe?kind,who ->
            if
            :: kind == request && (pieces == 0 || who == whose) -> pieces++; whose = who
            :: else -> pieces = 9       /* run together, or one's own words */
            fi }
    :: atomic { empty(pipe) && writers == 0 -> reads = false; closeRead() }; break
    HOST_MAY_DIE
    od;
#ifdef PRESENCE
    givesTurn = false;
    if
    :: turn == 0 || whole[turn - 1] || gone[turn - 1]
    HOST_MAY_DIE
    fi;
    if
    :: turn != 0 && gone[turn - 1] -> turn = 0; goto receiving    /* withdrawn */
    :: else
    fi;
#endif
    assert(pieces == 2);
    /* The user answers; a client that goes meanwhile ends that. */
#ifdef PRESENCE
    if
    :: gone[turn - 1] -> goto turnOver
    :: else
    fi;
    atomic { opening = true;
        if :: gone[turn - 1] -> hold() :: else fi };
#endif
    openToWrite();
    if
    :: readOpens != seen
    HOST_MAY_DIE
    fi;
#ifdef PRESENCE
    atomic { opening = false; unhold() };
#endif
    atomic {
        if :: readers > 0 -> pipe!answer,whose :: else fi;      /* else: EPIPE */
        writes = false; closeWrite()
    };
#ifdef PRESENCE
turnOver:
    if
    :: gone[turn - 1]
    HOST_MAY_DIE
    fi;
    readers == 0;             /* its last descriptor is closed */
    turn = 0;
#endif
    goto receiving;

dying:
    skip;
    atomic {
        hostGone = true;
#ifdef PRESENCE
        unhold();
#endif
        if :: writes -> writes = false; closeWrite() :: else fi;
        if :: reads -> reads = false; closeRead() :: else fi
    }
}

init {
    atomic {
        run Host();
        run Client(0);
        run Client(1);
#ifdef PRESENCE
        run Watcher();
#endif
    }
}
