/* The shared-memory ring of point packets: src/output/shm_udp_writer.cpp as the writer,
 * client/shm_ring_reader.cpp as the readers, function by function.
 *
 * Memory. The store log holds every store in the order of the writer's program. A load may give
 * any store to its word that is not older than what the reader knows: the newest one that it has
 * seen of this word (coherence) and whatever lies before its floor. Only synchronisation raises
 * the floor: an acquire load to what the store released, an acquire fence to what the loads before
 * it have met. That is the C++ memory model for this program, not an approximation to it. Readers
 * store nothing, and all that the writer loads is a header that no reader writes; so no load can
 * depend on a later store, and with one writer a thread's knowledge is always a beginning of the
 * log. Both reorderings are in it: a younger store seen before an older one, and a younger load
 * answered before an older one.
 *
 * Steps. A load may give an old store as long as nothing forbids it. A reader that runs after the
 * writer's whole packet therefore has every outcome of one that ran in the middle of it, and a
 * writer's step between two loads can as well come before both. So one packet of the writer and
 * one look of a reader are one step each. FINE makes every load a step of its own.
 *
 * Scenarios, by macro
 *   SLOTS, PACKETS    slots of the ring; packets that the (last) writer publishes
 *   READERS           1 or 2
 *   KEEPUP            the writer waits before it reuses a slot that a reader has not read: then
 *                     nothing may be lost
 *   INTRUSIONS        how often something foreign overwrites the header: a broken shape, any
 *                     head_seq, another boot_id
 *   RESTART           the writer dies anywhere and another one makes a new object
 *   INPLACE           the writer begins its numbers again in the same object
 *
 * Mutants, each of which has to fail: MUTANT is one of the names below. scripts/check_ring_model.sh
 * runs them all; docs/reliability.md explains the argument.
 */

/* One deliberate mistake each; 0 is the protocol as it stands. */
#define NO_MARK            1  /* the slot's number is not set to 0 before it is written */
#define NO_SECOND_LOOK     2  /* the reader does not look at the number after the copy */
#define NO_STORE_FENCE     3  /* the writer's fence after the mark */
#define NO_LOAD_FENCE      4  /* the reader's fence after the copy */
#define PLAIN_PUBLISH      5  /* the slot's number is stored without release order */
#define PLAIN_FIRST_LOOK   6  /* the slot's number is loaded without acquire order */
#define EARLY_NUMBER       7  /* the slot's number is stored before the payload */
#define BELIEVED_HEAD      8  /* a head number counts without its slot's agreement */
#define NO_RELOOK          9  /* a missing packet is lost without a second look */
#define LEFT_AT_ONCE      10  /* a replaced ring is left before its end */
#define PLAIN_WIPE        11  /* a rebuilt ring is emptied without marks and fences */
#define NO_BOOT_CHECK     12  /* the boot id is not looked at after the copy */
#define BOOT_AFTER_HEAD   13  /* a refreshed head may be older than the boot id read with it */
#define BOOT_BEFORE_NUMBER 14 /* the boot id is looked at before the number's second look */
#ifndef MUTANT
#define MUTANT 0
#endif

#ifndef SLOTS
#define SLOTS 2
#endif
#ifndef PACKETS
#define PACKETS 4
#endif
#ifndef READERS
#define READERS 2
#endif
#ifndef INTRUSIONS
#define INTRUSIONS 0
#endif
#ifdef RESTART
#define OBJECTS 2
#else
#define OBJECTS 1
#endif

/* Words of one object. All fields that tell the ring's shape are one word here: broken or sound.
 * A slot has its number, its length and one word of payload; what is true of one word of payload
 * against number and length is true of each. */
#define SHAPE 0
#define HEAD 1
#define BOOT 2
#define SLOT(number) (3 + ((number) + SLOTS - 1) % SLOTS * 3)
#define WORDS (3 + SLOTS * 3)
#define NAME (OBJECTS * WORDS) /* which object the name leads to, 0 none */

#define SOUND 1
#define BROKEN 2
/* What a packet's words hold: the packet itself, told apart between the writer's lives. */
#define CONTENT(life, number) ((life) * 32 + (number))

/* ---------------------------------------------------------------- memory */

#ifndef LOG_SIZE
#define LOG_SIZE 100
#endif
#define FOREIGN 255

byte log_end; /* entries 1..log_end; before them all words are 0 */
byte log_word[LOG_SIZE];
byte log_value[LOG_SIZE];
byte log_release[LOG_SIZE]; /* whoever acquires this store knows the log up to here */
byte fenced;                /* log end at the writer's last release fence */

inline Append(word, value, release) {
  log_end++;
  assert(log_end < LOG_SIZE);
  log_word[log_end] = word;
  log_value[log_end] = value;
  log_release[log_end] = release;
  printf("writer: #%d word %d = %d (release %d)\n", log_end, word, value, release)
}
inline Store(word, value) { d_step { Append(word, value, fenced) } }
inline StoreRelease(word, value) { d_step { Append(word, value, log_end) } }
inline StoreForeign(word, value) { d_step { Append(word, value, FOREIGN) } }
inline FenceBeforeStores() { fenced = log_end }

/* Takes one of the stores to `word` that the reader may see. `base` is 0 for the name. */
inline LoadAny(base, word) {
  atomic {
    d_step {
      at = floor;
      do
      :: at > 0 && !(log_word[at] == base + word && log_release[at] != FOREIGN) -> at--
      :: else -> break
      od;
      if
      :: base + word != NAME && seen[word] > at -> at = seen[word]
      :: else
      fi;
      if
      :: newest -> at = log_end + 1; Older(base + word)
      :: else
      fi;
      after = at; Younger(base + word)
    }
    do
    :: break
    :: after <= log_end && !newest ->
       d_step { at = after; Younger(base + word) }
    od;
    skip;
    d_step {
      value = (at == 0 -> 0 : log_value[at]);
      release = (at == 0 || log_release[at] == FOREIGN -> 0 : log_release[at]);
      printf("reader %d: word %d is %d (#%d)\n", me, base + word, value, at);
      if
      :: base + word != NAME && at > floor -> seen[word] = at
      :: else
      fi;
      at = 0; after = 0
    }
  }
}
inline Older(place) {
  do
  :: at--; if :: at == 0 || log_word[at] == place -> break :: else fi
  od;
  skip
}
inline Younger(place) {
  after = at;
  do
  :: after++; if :: after > log_end || log_word[after] == place -> break :: else fi
  od;
  skip
}

/* What the floor covers need not be remembered word by word. */
inline RaiseFloor(to) {
  d_step {
    if
    :: to > floor ->
       floor = to;
       at = 0;
       do
       :: at < WORDS ->
          if
          :: seen[at] <= floor && (seen[at] == 0 || log_release[seen[at]] != FOREIGN) ->
             seen[at] = 0
          :: else
          fi;
          at++
       :: else -> break
       od;
       at = 0
    :: else
    fi;
    if :: met <= floor -> met = 0 :: else fi
  }
}
inline Load(word) { /* relaxed */
  atomic {
    LoadAny(base, word);
    if :: release > met && release > floor -> met = release :: else fi;
    release = 0
  }
}
inline LoadAcquire(word) {
  atomic { LoadAny(base, word); RaiseFloor(release); release = 0 }
}
inline FenceAfterLoads() { RaiseFloor(met) }

/* ---------------------------------------------------------------- what is checked */

#define NOT_STARTED 0
#define FOLLOWING 1
#define EXCUSED 2 /* began at a packet that was gone already: does not keep up */

byte reader_state[READERS];
byte reader_object[READERS]; /* attached to; 0 none */
byte reader_next[READERS];
byte started[OBJECTS + 1];   /* number of the packet being written or written last */
byte published[OBJECTS + 1]; /* newest number whose head was stored */
byte wiped[OBJECTS + 1];     /* all up to this number were emptied by a repair */
byte object = 0;             /* the writer's */
byte life = 0;
byte intrusions = 0;
bool intruded[OBJECTS + 1];
bool writer_done = false;

#define MAX(a, b) ((a) > (b) -> (a) : (b))
/* Whether reader r leaves room for packet m: it has read what stands in the slot, or a repair has
 * emptied it. */
#define ROOM(r, m)                                                          \
  ((m) <= SLOTS || reader_state[r] != FOLLOWING ||                          \
   (reader_object[r] == object && (m) - SLOTS < MAX(reader_next[r], wiped[object])))
#if READERS == 2
#define ROOM_FOR(m) (ROOM(0, m) && ROOM(1, m))
#else
#define ROOM_FOR(m) ROOM(0, m)
#endif

/* ---------------------------------------------------------------- writer */

#define HERE ((object - 1) * WORDS)

/* ShmUdpInitRing. In a fresh object the zeros of the slots change nothing and are left out. */
inline InitRing(fresh) {
  boot_count++;
  Store(HERE + SHAPE, SOUND);
  Store(HERE + HEAD, 0);
#if MUTANT == BOOT_AFTER_HEAD
  Store(HERE + BOOT, boot_count);
#else
  StoreRelease(HERE + BOOT, boot_count);
#endif
#if MUTANT != PLAIN_WIPE
  FenceBeforeStores();
#endif
  if
  :: !fresh ->
     slot = 1;
     do
     :: slot <= SLOTS ->
#if MUTANT == PLAIN_WIPE
        Store(HERE + SLOT(slot) + 1, 0);
        Store(HERE + SLOT(slot) + 2, 0);
        Store(HERE + SLOT(slot), 0);
#else
        Store(HERE + SLOT(slot), 0);
        FenceBeforeStores();
        Store(HERE + SLOT(slot) + 1, 0);
        Store(HERE + SLOT(slot) + 2, 0);
#endif
        slot++
     :: else -> break
     od;
     slot = 0
  :: else
  fi
}

/* Something foreign overwrites a word of the header, or nothing happens. */
inline Intrude() {
#if INTRUSIONS > 0
  if
  :: true
  :: intrusions < INTRUSIONS && number < PACKETS ->
     intrusions++;
     intruded[object] = true;
     if
     :: StoreForeign(HERE + SHAPE, BROKEN); shape_broken = true
     :: StoreForeign(HERE + BOOT, 9)
     :: StoreForeign(HERE + HEAD, 1)
     :: StoreForeign(HERE + HEAD, number)
     :: StoreForeign(HERE + HEAD, number + 1)
     fi
  fi
#else
  skip
#endif
}

/* The first of two writers may die between any two of its stores. */
inline MayDie() {
#ifdef RESTART
  if
  :: object == 1 -> goto died
  :: true
  fi
#else
  skip
#endif
}

inline WriteOne() {
  Intrude();
  /* The writer may miss a foreign store, but not for ever: the last packet finds it. */
  if
  :: shape_broken -> wiped[object] = number - 1; InitRing(false); shape_broken = false
  :: shape_broken && room && number + 1 < PACKETS
  :: !shape_broken
  fi;
  started[object] = number;
#if MUTANT != NO_MARK
  Store(HERE + SLOT(number), 0);
#endif
#if MUTANT != NO_STORE_FENCE
  FenceBeforeStores();
#endif
  MayDie();
#if MUTANT == EARLY_NUMBER
  StoreRelease(HERE + SLOT(number), number);
#endif
  Store(HERE + SLOT(number) + 1, 0);
  Store(HERE + SLOT(number) + 2, CONTENT(life, number));
  MayDie();
  Store(HERE + SLOT(number) + 1, CONTENT(life, number));
  MayDie();
#if MUTANT == PLAIN_PUBLISH
  Store(HERE + SLOT(number), number);
#elif MUTANT != EARLY_NUMBER
  StoreRelease(HERE + SLOT(number), number);
#endif
  Intrude();
  MayDie();
  StoreRelease(HERE + HEAD, number);
  published[object] = number
}

active proctype Writer() {
  byte number = 1, slot, boot_count;
  bool shape_broken, room = true;

next_object:
  atomic {
    if
    :: object == 0 -> skip
    :: else -> StoreRelease(NAME, 0) /* shm_unlink; the kernel orders what it does */
    fi;
    object++;
    life++;
    boot_count = 0; /* another process counts from its own beginning */
    StoreRelease(NAME, object)
  }
  atomic { InitRing(true); number = 1 }
  do
  :: number > PACKETS -> break
  :: number <= PACKETS ->
     atomic {
#ifdef KEEPUP
       (shape_broken || ROOM_FOR(number)) ->
       room = ROOM_FOR(number);
#endif
       WriteOne();
       number++
     }
#ifdef INPLACE
  :: life == 1 && number > 1 ->
     atomic { life = 2; InitRing(false); number = 1 }
#endif
#ifdef RESTART
  :: object == 1 -> goto died
#endif
  od;
died:
  if
  :: object < OBJECTS -> goto next_object
  :: else
  fi;
  atomic { writer_done = true; number = 0; slot = 0; boot_count = 0; room = true }
}

/* ---------------------------------------------------------------- reader */

#define TAKEN 1
#define LOST 2
#define NOTHING 3
#define LOOK_AGAIN 4
#define ATTACHED 5
#define UNATTACHED 6

#ifdef FINE
#define ONE_STEP
#else
#define ONE_STEP atomic
#endif

/* SkipTo: the packets from next up to `to` - 1 are lost. */
inline SkipTo(to) {
#ifdef KEEPUP
  assert(reader_state[me] == EXCUSED || (to) - 1 <= wiped[attached]);
#endif
  next = to;
  result = LOST
}

/* ConfirmedHead. One try stands for all eight: further tries only know more. */
inline ConfirmedHead() {
  LoadAcquire(HEAD);
  confirmed = value;
#if MUTANT != BELIEVED_HEAD
  if
  :: confirmed != 0 ->
     LoadAcquire(SLOT(confirmed));
     if :: value != confirmed -> confirmed = 0 :: else fi
  :: else
  fi
#endif
}

/* FindPlace. A failure leaves the reader without a ring. */
inline FindPlace() {
  result = UNATTACHED;
  Load(SHAPE);
  if
  :: value == SOUND ->
#if MUTANT == BOOT_AFTER_HEAD
     Load(BOOT);
#else
     LoadAcquire(BOOT);
#endif
     boot = value;
     LoadAcquire(HEAD);
     head = value;
     if
     :: head != 0 -> ConfirmedHead(); head = confirmed; if :: head != 0 -> result = ATTACHED :: else fi
     :: else -> result = ATTACHED
     fi
  :: else
  fi;
  if
  :: result == ATTACHED ->
     next = 1;
     if
     :: followed_before
     :: !followed_before -> next = head + 1
     :: !followed_before && head > SLOTS -> next = head - SLOTS + 1
     :: !followed_before && head <= SLOTS
     fi
  :: else
  fi;
  confirmed = 0
}

/* Attach: to whatever the name leads to. */
inline Attach() {
  LoadAny(0, NAME);
  RaiseFloor(release);
  release = 0;
  attached = value;
  result = UNATTACHED;
  if
  :: attached != 0 ->
     base = (attached - 1) * WORDS;
     d_step { at = 0; do :: at < WORDS -> seen[at] = 0; at++ :: else -> break od; at = 0; met = 0 }
     FindPlace();
     if
     :: result == UNATTACHED -> attached = 0; head = 0; boot = 0
     :: else ->
        d_step {
          if
          :: !followed_before ->
             reader_state[me] = (next + SLOTS <= started[attached] || next <= wiped[attached] ||
                                 (attached != object && started[object] > SLOTS)
                                 -> EXCUSED : FOLLOWING)
          :: else
          fi;
          followed_before = true; replaced = false; restart_possible = false; final = 0
        }
     fi
  :: else
  fi
}

/* LookAtName. */
inline LookAtName() {
  if
  :: !replaced ->
     LoadAny(0, NAME);
     if
     :: value != 0 && value != attached ->
        RaiseFloor(release);
        release = 0;
        replaced = true;
        LoadAcquire(HEAD);
        final = value;
        if :: head > final -> head = final :: else fi
     :: else -> RaiseFloor(release); release = 0
     fi
  :: else
  fi
}

/* NumbersBeganAgain, for the head in `fresh_head`. */
inline NumbersBeganAgain() {
  if
  :: restart_possible && fresh_head + 1 < next ->
     LoadAcquire(SLOT(next - 1));
     if
     :: value != next - 1 ->
        LoadAcquire(SLOT(fresh_head));
        if :: value == fresh_head -> next = 1 :: else fi
     :: else
     fi
  :: else
  fi
}

/* RefreshHead. `result` is NOTHING unless the header shows a packet from next on. */
inline RefreshHead() {
  result = NOTHING;
  Load(SHAPE);
  if
  :: value == SOUND ->
#if MUTANT != BOOT_AFTER_HEAD
     LoadAcquire(BOOT);
     fresh_boot = value;
#endif
     LoadAcquire(HEAD);
     fresh_head = value;
#if MUTANT == BOOT_AFTER_HEAD
     Load(BOOT);
     fresh_boot = value;
#endif
     if
     :: fresh_boot != boot -> boot = fresh_boot; restart_possible = true
     :: else
     fi;
     if
     :: fresh_head != 0 ->
        NumbersBeganAgain();
        if :: replaced && fresh_head > final -> fresh_head = final :: else fi;
        if :: fresh_head >= next -> head = fresh_head; result = 0 :: else fi
     :: else
     fi
  :: else
  fi;
  fresh_head = 0; fresh_boot = 0; value = 0
}

/* MissingPacket. */
inline MissingPacket() {
  ConfirmedHead();
  if
  :: confirmed == 0 || confirmed < next -> head = next - 1; result = NOTHING
  :: else ->
     value = 0;
#if MUTANT != NO_RELOOK
     LoadAcquire(SLOT(next));
#endif
     if
     :: value == next -> result = LOOK_AGAIN
     :: else ->
        /* oldest + margin, where the margin of so small a ring is 1 */
        value = (confirmed + 2 > SLOTS -> confirmed + 2 - SLOTS : 0);
        if :: value > next + 1 -> SkipTo(value) :: else -> SkipTo(next + 1) fi
     fi
  fi;
  confirmed = 0
}

/* TakeSlot. */
inline TakeSlot() {
#if MUTANT == PLAIN_FIRST_LOOK
  Load(SLOT(next));
#else
  LoadAcquire(SLOT(next));
#endif
  if
  :: value != next -> MissingPacket()
  :: else ->
     Load(SLOT(next) + 1);
     length = value;
     if
     :: length != 0 -> Load(SLOT(next) + 2); payload = value
     :: else
     fi;
#if MUTANT != NO_LOAD_FENCE
     FenceAfterLoads();
#endif
#if MUTANT == BOOT_BEFORE_NUMBER
     Load(BOOT);
     fresh_boot = value;
     Load(SLOT(next));
     number = value;
#else
     LoadAcquire(SLOT(next));
     number = value;
     Load(BOOT);
     fresh_boot = value;
#endif
#if MUTANT == NO_SECOND_LOOK
     number = next;
#elif MUTANT == NO_BOOT_CHECK
     fresh_boot = boot;
#endif
     if
     :: fresh_boot != boot -> head = next - 1; result = LOOK_AGAIN
     :: fresh_boot == boot && (number != next || length == 0) -> SkipTo(next + 1)
     :: fresh_boot == boot && number == next && length != 0 -> Accept()
     fi;
     number = 0; fresh_boot = 0;
     length = 0; payload = 0
  fi;
  value = 0
}

inline Accept() {
  assert(length == payload);     /* of one packet, */
  assert(length % 32 == next);   /* of this one, */
#ifndef INPLACE
  assert(length / 32 == attached); /* of the writer of this object */
#endif
  printf("reader %d: packet %d taken\n", me, next);
  next++;
  restart_possible = false;
  result = TAKEN
}

/* One round of TryNext. */
inline Look() {
  if
  :: attached == 0 -> Attach()
  :: else ->
#ifdef RESTART
     if
     :: true -> LookAtName()
     :: !newest -> skip
     fi;
#endif
     result = 0;
#if MUTANT == LEFT_AT_ONCE
     if :: replaced -> result = NOTHING :: else fi;
#endif
     if
     :: result == 0 && head < next -> RefreshHead()
     :: else
     fi;
     if
     :: result == 0 -> TakeSlot()
     :: else
     fi;
     if
     :: result == NOTHING && replaced ->
#ifdef KEEPUP
        assert(reader_state[me] == EXCUSED || intruded[attached] ||
               next > published[attached]);
#endif
        attached = 0;
        d_step { reader_object[me] = 0; head = 0; boot = 0; final = 0; replaced = false;
                 restart_possible = false }
        Attach()
     :: else
     fi
  fi;
  d_step {
    reader_object[me] = attached; reader_next[me] = next; value = 0;
    if :: attached == 0 -> next = 1; base = 0 :: else fi;
    if :: head < next -> head = 0 :: else fi /* an older head tells nothing */
  }
}

proctype Reader(byte me) {
  byte floor, met, seen[WORDS]; /* knowledge */
  byte at, after, value, release, base; /* of the load in hand */
  byte attached, next = 1, head, final, boot;
  byte fresh_head, fresh_boot, confirmed, number, length, payload, result;
  bool replaced, restart_possible, followed_before;
  bool newest; /* nothing changes any more and all stores have arrived */

  do
  :: !newest -> ONE_STEP { Look(); result = 0 }
  :: writer_done && !newest -> newest = true
  :: newest ->
     ONE_STEP { Look() };
     if
     :: result == NOTHING || result == UNATTACHED -> break
     :: else -> result = 0
     fi
  od;
  /* With the stream at its end every reader has come to its end, too. */
  assert(attached == OBJECTS);
#ifndef INPLACE
  assert(next == published[OBJECTS] + 1)
#endif
}

init {
  atomic {
    run Reader(0);
#if READERS == 2
    run Reader(1)
#endif
  }
}
