/* Whole frames of the LiDAR node for programs in C, and for every language that calls C.
 *
 *   kerul_lidar_stream* stream = NULL;
 *   const kerul_lidar_frame* frame = NULL;
 *   kerul_lidar_open_ring(NULL, KERUL_LIDAR_NEWEST, &stream);
 *   while (kerul_lidar_next(stream, 1000, &frame) == KERUL_LIDAR_OK) use(frame->range_m);
 *   kerul_lidar_close(stream);
 *
 * Link libkerul_lidar_client.so (pkg-config kerul-lidar-c, or the CMake target kerul_lidar::c).
 *
 * Results. A function that can fail gives KERUL_LIDAR_OK, which is 0, or another
 * kerul_lidar_result; then it has done nothing and left its out-parameters alone. Null pointers
 * that are not allowed and values out of range give KERUL_LIDAR_INVALID_ARGUMENT. Nothing is thrown
 * across this interface.
 *
 * Threads. Streams and calibrations are independent of each other. A stream belongs to one thread
 * at a time: a call while another thread is inside one with the same stream gives KERUL_LIDAR_BUSY.
 * A calibration may be used by several threads as long as none of them sets its mounting or frees
 * it.
 *
 * Shapes. A plane is an array [echo][row][col] of 2 x 216 x 288 values without gaps: the place of a
 * value is (echo * 216 + row) * 288 + col. Row 0 is the lowest of the picture. An echo that is not
 * published, and pixels that did not come, read as no return.
 */
#ifndef KERUL_LIDAR_KERUL_LIDAR_H
#define KERUL_LIDAR_KERUL_LIDAR_H

#include <stddef.h> /* NOLINT: a C header */
#include <stdint.h> /* NOLINT */

#ifdef __cplusplus
extern "C" {
#endif

enum {
  KERUL_LIDAR_ECHOES = 2,
  KERUL_LIDAR_ROWS = 216,
  KERUL_LIDAR_COLS = 288,
  KERUL_LIDAR_PLACES = 2 * 216 * 288 /* of a plane */
};

enum kerul_lidar_result {
  KERUL_LIDAR_OK = 0,
  KERUL_LIDAR_NO_FRAME = 1, /* none in this time, or a signal ended the wait: call again */
  KERUL_LIDAR_ENDED = 2,    /* no frame will come any more: a pipe's end, or a stopped stream */
  KERUL_LIDAR_INVALID_ARGUMENT = 3,
  KERUL_LIDAR_CANNOT_OPEN = 4,      /* the UDP port or the multicast group */
  KERUL_LIDAR_CANNOT_CALIBRATE = 5, /* no angle record, or none that can be used */
  KERUL_LIDAR_BUSY = 6,             /* another thread is inside a call with this stream */
  KERUL_LIDAR_OUT_OF_MEMORY = 7,
  KERUL_LIDAR_INTERNAL_ERROR = 8
};

enum { KERUL_LIDAR_NEWEST = 0, KERUL_LIDAR_OLDEST = 1 }; /* where a ring's reader begins */

/* Bits of kerul_lidar_frame::flags. The lower three are a number, the width's verdict. */
enum {
  KERUL_LIDAR_FLAG_WIDTH_MASK = 7,
  KERUL_LIDAR_FLAG_HIGH_REFL = 1 << 3, /* high-reflectivity target */
  KERUL_LIDAR_FLAG_BLOOM = 1 << 4,     /* false return around a bright target */
  KERUL_LIDAR_FLAG_AFTER_PULSE = 1 << 5,
  KERUL_LIDAR_FLAG_GROUND = 1 << 6,
  KERUL_LIDAR_FLAG_FILLED = 1 << 7, /* synthetic return that filled a hole */
  KERUL_LIDAR_FLAG_SHOT_NOISE = 1 << 8,
  KERUL_LIDAR_FLAG_DEBUG = 1 << 9,
  KERUL_LIDAR_FLAG_ECHO = 1 << 10,
  KERUL_LIDAR_FLAG_DETECT_FAILED = 1 << 11,
  KERUL_LIDAR_FLAG_SHOT_NOISE_GROUP = 1 << 12
};

typedef struct kerul_lidar_stream kerul_lidar_stream;           /* NOLINT: C has no using */
typedef struct kerul_lidar_calibration kerul_lidar_calibration; /* NOLINT */

/* Belongs to the library, with its planes. Later versions may add members at the end. */
typedef struct kerul_lidar_frame { /* NOLINT */
  int32_t id;                      /* the sensor's count, 0..255; a node's first frame is 0 */
  int32_t echoes;                  /* published: 1 or 2 */
  int32_t return_code;             /* which ones, two decimal digits */
  int32_t output_mode;             /* what a point carries beside its range */
  uint32_t known_flags;            /* the flags that this mode carries; the others are 0 */
  int32_t missing_blocks;          /* of 6 x 6 pixels that did not come, of 1728 for each echo */
  int32_t missing_frames;          /* frame ids passed over since the frame before */
  int32_t after_restart;           /* 1: the first frame of another node, or of a new ring */
  uint64_t lost_packets;           /* point packets that did not come since the frame before */
  /* When its first and last packet were built: microseconds of the node's clock since the epoch. */
  int64_t first_timestamp_us;
  int64_t last_timestamp_us;
  const float* range_m;        /* plane, metres; 0 is no return */
  const uint8_t* reflectivity; /* plane, 0..255; 0 where the mode does not carry it */
  const uint16_t* flags;       /* plane, KERUL_LIDAR_FLAG_ bits */
  const uint8_t* ground;       /* plane, 1: lies on the ground; 0 where the mode does not tell */
  const uint8_t* valid;        /* plane, 1: a return */
  const uint8_t* payload;      /* [2][216][288][3], what the mode carries, as published */
  /* [36], when the first packet of each miniflash row, six rows of pixels, was built, as above; 0
   * where none came. A row is published a little after it was measured. */
  const int64_t* row_timestamp_us;
} kerul_lidar_frame;

/* Since the stream was opened. */
typedef struct kerul_lidar_counts { /* NOLINT */
  uint64_t complete;                /* frames given with all their blocks */
  uint64_t incomplete;              /* frames given with blocks missing */
  uint64_t missing_frames;          /* frame ids passed over */
  uint64_t packets;                 /* point packets taken */
  uint64_t invalid;                 /* datagrams that are no point packets */
  uint64_t lost_packets;            /* point packets that did not come */
  uint64_t restarts;                /* times another node, or a new ring, went on */
} kerul_lidar_counts;

/* The version of the library, "0.1.0". */
const char* kerul_lidar_version(void);
/* A short text for a kerul_lidar_result; "unknown result" for any other number. Never null. */
const char* kerul_lidar_result_text(int result);
/* What the calling thread's last failed call had to say, with the system's reason. "" before the
 * first. The text belongs to the thread and lasts until its next failure. */
const char* kerul_lidar_last_error(void);

/* Follows the node's ring of this name; null or "" is the default one. A ring that is not there yet
 * is waited for. `start`: KERUL_LIDAR_NEWEST begins with the next packet that is written, and
 * KERUL_LIDAR_OLDEST with the oldest that is still held. */
int kerul_lidar_open_ring(const char* name, int start, kerul_lidar_stream** stream);
/* Receives on this UDP port on all addresses (0: a free one, told by kerul_lidar_describe), and
 * joins the multicast group, an IPv4 address as text, unless it is null or "". */
int kerul_lidar_open_udp(uint16_t port, const char* group, kerul_lidar_stream** stream);
/* Reads point packets one after another from this descriptor to its end, as lidar_replay writes
 * them. The descriptor stays the caller's and must stay open until the stream is stopped. */
int kerul_lidar_open_pipe(int fd, kerul_lidar_stream** stream);
/* Keeps the process alive when somebody makes the ring's object shorter. Installs a SIGBUS handler
 * for the whole process, which passes other faults on, so a program has to ask for it. */
int kerul_lidar_survive_shortening(kerul_lidar_stream* stream);

/* Waits up to `timeout_ms` (0 or more) for the next frame: complete with its last block, or with
 * blocks missing when the next one begins or a pipe ends. KERUL_LIDAR_NO_FRAME when none came,
 * KERUL_LIDAR_ENDED when none will. The frame and its planes are valid until the next call that
 * gives a frame, or until the stream is closed. The planes of a stream always have the same
 * addresses. */
int kerul_lidar_next(kerul_lidar_stream* stream, int32_t timeout_ms,
                     const kerul_lidar_frame** frame);
/* `size` is sizeof(kerul_lidar_counts): a program built with an earlier, shorter one gets that. */
int kerul_lidar_get_counts(kerul_lidar_stream* stream, kerul_lidar_counts* counts, size_t size);
/* What is being read, and whether it is there, for messages: "ring /name (not there)". Writes at
 * most `size` bytes with the ending 0; a longer text is cut. */
int kerul_lidar_describe(kerul_lidar_stream* stream, char* text, size_t size);
/* Lets go of ring, port or pipe. The frame given last stays valid, and so do the counts. */
int kerul_lidar_stop(kerul_lidar_stream* stream);
/* Frees the stream and its frame. The pointer must not be used afterwards. Null does nothing. */
int kerul_lidar_close(kerul_lidar_stream* stream);

/* Which way each pixel looks, from a calibration directory: that of the node's --cali_path, or the
 * node's cache of a sensor. */
int kerul_lidar_load_calibration(const char* directory, kerul_lidar_calibration** calibration);
/* How the sensor is mounted on its carrier: x, y, z in metres, then roll, pitch, yaw in radians.
 * Without it, points are in the sensor's axes: x ahead, y to the left, z up. */
int kerul_lidar_set_mount(kerul_lidar_calibration* calibration, const double mount[6]);
/* The points of a plane of ranges: from `range_m`, a plane in metres, to `xyz_m`, [2][216][288][3]
 * floats of the caller's, metres. NaN without return or direction. */
int kerul_lidar_points(const kerul_lidar_calibration* calibration, const float* range_m,
                       float* xyz_m);
/* Null does nothing. */
int kerul_lidar_free_calibration(kerul_lidar_calibration* calibration);

#ifdef __cplusplus
}
#endif

#endif
