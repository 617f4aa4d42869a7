/*
 * halftone.h - band halftoning for inkjet print hosts.
 *
 * THE BAND CONTRACT (read once; each routine below notes only how it differs)
 *
 * A host halftones a page band by band. Each call hands over one band of continuous-tone input
 * and a buffer for its dot data:
 *
 *   src    8-bit samples, h rows of every plane, rows interleaved by plane: row y of plane p
 *          starts at byte (y * P + p) * src_stride, src_stride = ((w * 8 + 31) >> 5) * 4.
 *   dst    dot planes in the same interleaving, dst_stride = ((w * bits + 31) >> 5) * 4, always a
 *          multiple of 4 bytes. The routine clears the whole band (dst_stride * P * h bytes) and
 *          ORs codes into it.
 *            1 bit:  pixel x in byte x >> 3 at bit 7 - (x % 8); 1 = a dot.
 *            2 bits: pixel x in byte x >> 2 at bits 6 - 2 * (x % 4); code 3 = level L0 (largest
 *                    drop), 2 = L1, 1 = L2, 0 = L3 (no drop).
 *            4 bits: pixel x in byte x >> 1, even x in the high nibble; code 7 - i = level Li.
 *   w, h   pixels per row and rows per plane in this band.
 *   flags  bits 8-15 plane count P, bits 16-23 job phase: 1 = first band of a job (the error
 *          rows are made and zeroed before it), 3 = last band (the rows are released after it),
 *          any other value = a further band. Bits 0-7 and 24-31 are not read.
 *
 * src, dst and file names belong to the caller and are used only during the call. Diffusion
 * error crosses from the last row of one band into row 0 of the next through the library's
 * band-carry row. The random source is reseeded from the clock (seconds) as each routine says;
 * halftone_set_fixed_time() pins that clock for reproducible output.
 *
 * Return codes, and what a host does on each:
 *   0      done (the halftoning routines return 0 for every call inside the contract). Go on.
 *   20101  a file could not be opened. Check the file's name and place under the host folder
 *          (halftone_set_host_folder); the table keeps what it held.
 *   20103  a file read came up short: the file is truncated; what was read before is in force.
 *          Replace the file.
 *   20104  a file breaks its format (sizes it claims are impossible); the table is left as it was.
 *          Replace the file or fix the sizes passed.
 *   20301  a fault was caught while loading; the table may be partly loaded. Load it again from a
 *          good file before halftoning with it.
 *   20302  memory could not be had (read buffer of a loader, or a job's error rows). Free memory
 *          and start the job again with phase 1.
 *   20401  call outside the contract, refused without touching any memory: a band of a job
 *          that was never started (or already ended), a band wider or with more planes than
 *          its start-of-job call, zero width or height where the routine cannot run on them,
 *          a plane count beyond a routine's per-plane state, negative sizes. A host bug: fix the
 *          call (start the job with phase 1, keep bands within the first band's size).
 *   20402  busy: another thread of the host is inside the library, in a call that uses the
 *          process-wide instance. Refused at once, nothing touched, no wait. The library runs one
 *          job on one thread at a time: serialise the calls (a lock around them in the host);
 *          retrying the same call once the other has returned is safe.
 *   20501  the routine exists so that hosts resolving every name load, but does nothing. Use
 *          another method.
 *
 * Threads: the library holds one process-wide instance (error rows, random source, tone curves,
 * level values, loaded tables). It is not reentrant: one job, one calling thread at a time.
 * Every call that uses the instance (halftoning routines, Itsdiufiavs, loaders, the
 * halftone_set_* setters, halftone_last_load_status) refuses a second thread with 20402 while it
 * runs (a setter returning void then does nothing). Exempt, and free to run beside any call: the
 * job-signalling calls (their purpose is to pace host threads), the rotated and four-way
 * routines (no process-wide state; their random source is per thread), halftone_version and the
 * method registry.
 */
#ifndef HALFTONE_HALFTONE_H
#define HALFTONE_HALFTONE_H

#if defined(_WIN32) || defined(__CYGWIN__)
#  if defined(HALFTONE_BUILDING_LIBRARY)
#    define HALFTONE_API __declspec(dllexport)
#  else
#    define HALFTONE_API __declspec(dllimport)
#  endif
#elif defined(__GNUC__) || defined(__clang__)
#  define HALFTONE_API __attribute__((visibility("default")))
#else
#  define HALFTONE_API
#endif

/* Calling convention of every export. cdecl as built by default; a library configured with
 * HALFTONE_STDCALL=ON (for 32-bit Windows hosts whose function pointers are declared WINAPI)
 * exports stdcall routines under the same undecorated names, and its CMake package and
 * pkg-config file define HALFTONE_STDCALL for the code that includes this header. On 64-bit
 * Windows and elsewhere there is one convention and the macro changes nothing. */
#if defined(_WIN32) && !defined(_WIN64)
#  if defined(HALFTONE_STDCALL)
#    define HALFTONE_CALL __stdcall
#  else
#    define HALFTONE_CALL __cdecl
#  endif
#else
#  define HALFTONE_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Return codes ------------------------------------------------------------------------ */
#define HALFTONE_OK 0
#define HALFTONE_ERR_OPEN 20101             /* a file could not be opened */
#define HALFTONE_ERR_SHORT_READ 20103       /* a read returned less than asked for */
#define HALFTONE_ERR_FAULT 20301            /* a fault was caught while loading */
#define HALFTONE_ERR_NO_MEMORY 20302        /* memory could not be allocated */
#define HALFTONE_ERR_OUT_OF_CONTRACT 20401  /* call outside the contract, refused untouched */
#define HALFTONE_ERR_BUSY 20402             /* another host thread is inside the library; refused untouched */
#define HALFTONE_ERR_NOT_PROVIDED 20501     /* exported for hosts that resolve it; does nothing */

/* ---- Flags word helpers ------------------------------------------------------------------ */
#define HALFTONE_PHASE_START 1u
#define HALFTONE_PHASE_MIDDLE 0u
#define HALFTONE_PHASE_END 3u
#define HALFTONE_FLAGS(planes, phase) ((((unsigned)(planes) & 0xFFu) << 8) | (((unsigned)(phase) & 0xFFu) << 16))

/* ---- Library extensions ------------------------------------------------------------------ */

/* Library version, "major.minor.patch". */
HALFTONE_API const char *HALFTONE_CALL halftone_version(void);
/* From now on every seeding of a random source uses `seconds` instead of the calendar clock;
 * a negative value restores the clock. For reproducible output and exact tests. */
HALFTONE_API void HALFTONE_CALL halftone_set_fixed_time(long long seconds);
/* Read every library file (tone curves, Moths tables) from `folder` instead of the host
 * program's folder; a separator is appended when missing. NULL restores the default. Returns 0. */
HALFTONE_API int HALFTONE_CALL halftone_set_host_folder(const char *folder);
/* The code the last file load determined (0 or a loader code), also for loaders that return 0
 * to their caller by design. */
HALFTONE_API int HALFTONE_CALL halftone_last_load_status(void);

/* Threads a band call may use for its planes, the calling thread included (default 1, every
 * plane on the caller). Only routines whose planes are independent within a band use them (the
 * random-split diffusions, whose random draws per plane are fixed by the band size); the dots
 * are the same bit for bit whatever the count. n is clamped to 1..64; returns the count set.
 * Call it between jobs, not while a band runs. */
HALFTONE_API int HALFTONE_CALL halftone_set_threads(int n);
/* The tier the fast paths run on in this process: "reference" (each routine's readable scalar
 * pass), "lockstep" (planes in scalar lockstep groups) or "vector" (groups as vector lanes where
 * the CPU has them). Chosen once, by HALFTONE_PATH=reference|lockstep|vector in the environment;
 * unset, the fastest available. Every tier gives the same dots. */
HALFTONE_API const char *HALFTONE_CALL halftone_path(void);

/* Entry-point shapes of the halftoning methods, for callers that pick methods by name. */
enum halftone_entry_kind {
  HALFTONE_ENTRY_BAND = 1,          /* int (unsigned char *src, unsigned char *dst, int w, int h, unsigned flags) */
  HALFTONE_ENTRY_BAND_UNSIGNED = 2, /* int (unsigned char *src, unsigned char *dst, unsigned w, unsigned h, unsigned flags) */
  HALFTONE_ENTRY_PLANE = 3,         /* int (unsigned char *src, unsigned char *dst, unsigned w, unsigned h): one plane, whole job */
  HALFTONE_ENTRY_LOOKUP_REF = 4,    /* int (unsigned char *src, unsigned char **dst, int w, int h, int *lookup, unsigned char *unused) */
  HALFTONE_ENTRY_LOOKUP = 5         /* int (unsigned char *src, unsigned char *dst, int w, int h, int *lookup, unsigned char *unused) */
};
/* The entry shapes as pointer types, with the library's calling convention. */
typedef int (HALFTONE_CALL *halftone_band_fn)(unsigned char *, unsigned char *, int, int, unsigned int);
typedef int (HALFTONE_CALL *halftone_band_unsigned_fn)(unsigned char *, unsigned char *, unsigned int, unsigned int,
                                                       unsigned int);
typedef int (HALFTONE_CALL *halftone_plane_fn)(unsigned char *, unsigned char *, unsigned int, unsigned int);
typedef int (HALFTONE_CALL *halftone_lookup_ref_fn)(unsigned char *, unsigned char **, int, int, int *, unsigned char *);
typedef int (HALFTONE_CALL *halftone_lookup_fn)(unsigned char *, unsigned char *, int, int, int *, unsigned char *);
/* How a method lays out its dot plane. */
enum halftone_layout {
  HALFTONE_LAYOUT_BAND = 0,   /* the band layout above */
  HALFTONE_LAYOUT_TURNED = 1, /* one plane turned or transposed: w rows of ((h + 31) >> 5) * 4 bytes */
  HALFTONE_LAYOUT_ROWS = 2    /* one plane, h rows of ((w + 31) >> 5) * 4 bytes */
};
/* Tables a method reads; load them before halftoning (bit mask). */
#define HALFTONE_TABLE_BITMAP 0x01u /* threshold bitmap: PuaningFa or PuaningFa13 */
#define HALFTONE_TABLE_BIAS 0x02u   /* bias matrix: PuaningFa13 */
#define HALFTONE_TABLE_MONO 0x04u   /* 1-bit pattern stack: KaiDuaning */
#define HALFTONE_TABLE_DUO 0x08u    /* 2-bit pattern stack: NingJing */
#define HALFTONE_TABLE_LAYER 0x10u  /* layer table: NiceMents */
#define HALFTONE_TABLE_BAYER 0x20u  /* 16 x 16 Bayer matrix: SincesKai */

typedef struct halftone_method_info {
  const char *name;        /* export name, e.g. "RoundFaxest" */
  const char *family;      /* family in plain words */
  const char *description; /* one line on the character of its dots */
  int output_bits;         /* 1, 2 or 4 bits a pixel */
  int entry_kind;          /* enum halftone_entry_kind */
  int layout;              /* enum halftone_layout */
  unsigned tables;         /* HALFTONE_TABLE_* the method reads */
  void (*entry)(void);     /* the export; cast to the shape given by entry_kind before calling */
} halftone_method_info;

/* Number of halftoning methods this build provides. */
HALFTONE_API int HALFTONE_CALL halftone_method_count(void);
/* Fills *info for method `index` (0 .. count - 1); returns 0, or 20401 for a bad index or NULL. */
HALFTONE_API int HALFTONE_CALL halftone_method_get(int index, halftone_method_info *info);

/* ---- Set-up: tone curves, mode, level values --------------------------------------------- */

/* Reload "ToneAry.ham" from the host folder into the fifteen curve slots, select curve A and B
 * by `mode`, parse `levels` ("0,85,170,255," - every value ends in a comma) into L0..L8.
 * Always 0. Routines called before the first call use the all-zero slot 0 and zero levels. */
HALFTONE_API int HALFTONE_CALL Itsdiufiavs(int mode, const char *levels);

/* ---- Random-split diffusion, four levels (2 bits) ---------------------------------------- */

/* Serpentine four-level diffusion, 1/3 : 2/3 random split, raw-sample vetoes, curve terms. */
HALFTONE_API int HALFTONE_CALL RoundFaxest(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* RoundFaxest with unsigned sizes; same dots. */
HALFTONE_API int HALFTONE_CALL RoundFaxest__(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Grouped four-level diffusion: whole error or halves by a 2-bit draw, thirds into the next
 * band from the last row in either direction; raw-sample vetoes, curve terms. Zero w or h: 20401. */
HALFTONE_API int HALFTONE_CALL FastGroup(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* FastGroup with fixed thresholds 64/128/192 and levels 0/85/170/255, no raw-sample veto. */
HALFTONE_API int HALFTONE_CALL FastGroup1(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Single-dot-size grouped diffusion (dot at or below 128) writing code 1 (small drop). */
HALFTONE_API int HALFTONE_CALL ArcistPump(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* As ArcistPump, same dot positions, code 2 (medium drop). */
HALFTONE_API int HALFTONE_CALL Kaishanxing(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* As ArcistPump, same dot positions, code 3 (large drop). */
HALFTONE_API int HALFTONE_CALL SymanOpening(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);

/* ---- Random-split diffusion, bilevel (1 bit) --------------------------------------------- */
/* Lightness sense: a dot where the corrected value is at most 128; ink sense: above 128.
 * Every routine of this section and the next refuses zero w or h with 20401. */

/* Lightness sense, white guard, thirds split by 2-bit draw, tone-curve terms. */
HALFTONE_API int HALFTONE_CALL sdiufiavs(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Lightness sense, white guard, 1-bit split; reseeds only at the start of a job. */
HALFTONE_API int HALFTONE_CALL sdiufiavs1(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Ink sense, full guard (255 always prints), thirds split. */
HALFTONE_API int HALFTONE_CALL mandfanes(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Ink sense, no guard, quarter splits. */
HALFTONE_API int HALFTONE_CALL orangecagn(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Lightness sense, whole error to one neighbour by a 1-bit draw. */
HALFTONE_API int HALFTONE_CALL jsdi6yruis(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Ink sense, whole error to one neighbour by a 1-bit draw. */
HALFTONE_API int HALFTONE_CALL irpduix7sg(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* One plane, no flags word, no carried error: every call is a whole job (lightness, whole
 * error to one neighbour); output h rows of ((w + 31) >> 5) * 4 bytes; job rows untouched. */
HALFTONE_API int HALFTONE_CALL hxkjsdi67x(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h);

/* ---- Random-split diffusion, eight levels (4 bits) --------------------------------------- */

/* Eight-level diffusion against L0..L7, restricted by the input sample; halves within the
 * band, thirds into the next. */
HALFTONE_API int HALFTONE_CALL RoundPump(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Eight-level diffusion, thresholds 32..224 step 32, levels 0 36 72 109 145 182 218 255. */
HALFTONE_API int HALFTONE_CALL RoundPump1(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);

/* ---- Table-driven diffusion, double precision, bilevel ----------------------------------- */
/* One bit a pixel, serpentine, errors carried in 64-bit floating point in rows of their own
 * (a job uses members of this family only). Zero w or h is refused with 20401. */

/* Whole error to one neighbour (97 %), ahead or down in random runs of 10-11 pixels; the band's
 * last row passes its full error ahead and its down errors to the next band. */
HALFTONE_API int HALFTONE_CALL suiruiskao(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* One third / two thirds ahead or down, a random bit choosing; row ends keep a quarter down. */
HALFTONE_API int HALFTONE_CALL suiruiskao2(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* suiruiskao2's dots; formats a per-row diagnostic dump (written only in dump builds). */
HALFTONE_API int HALFTONE_CALL suiruiskao3(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* suiruiskao2's dots; formats a per-pixel diagnostic dump (written only in dump builds). */
HALFTONE_API int HALFTONE_CALL suiruiskao4(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Level bias every 4th column; row share 1/2, 0.67 or 3/4 by level and column parity. */
HALFTONE_API int HALFTONE_CALL suiruiskao5(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Row share 1/2, 2/3 or 3/4 from the local tone and column parity, held in a fourth row. */
HALFTONE_API int HALFTONE_CALL suiruiskao6(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Level bias every 2nd column; row share 0.45, 0.67 or 3/4 by level. */
HALFTONE_API int HALFTONE_CALL suiruiskao7(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Strong level bias at every pixel; 2/3 ahead; no white guard. Reseeds at job start only. */
HALFTONE_API int HALFTONE_CALL suiruiskao9(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* 2/3 ahead, 1/3 diagonally down by a banded mask. Reseeds at job start only. */
HALFTONE_API int HALFTONE_CALL suiruiskao10(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Halves ahead and down; a per-level 16 x 16 double tile that nothing fills (zeros). */
HALFTONE_API int HALFTONE_CALL CrisixOut_double(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);

/* ---- Table-driven diffusion, 16-bit integer ---------------------------------------------- */
/* Error rows are 16-bit; a band carries into the next only when its last row runs backward
 * (an even row count); highforces keeps its last row's errors in either direction. */

/* Bilevel, carry preset -35, bias min(v, 31, 255 - v) at odd x of backward rows only; 2/3 or
 * 1/2 ahead by level band (limits 216/166 forward, 213/179 backward); seeds at job start. */
HALFTONE_API int HALFTONE_CALL sdiufiavs2(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Bilevel, carry preset -25, mid-tone bias up to 31; splits and limits as sdiufiavs4. */
HALFTONE_API int HALFTONE_CALL sdiufiavs3(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Four levels 0/85/170/255 at 64/128/192, carry preset -13, level bias bytes at even x forward
 * and odd x backward; 2/3 or 3/4 ahead by parity, random in mid-tones, all or halves in darks. */
HALFTONE_API int HALFTONE_CALL sdiufiavs4(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Bilevel halving diffusion: ahead e/2 truncated, the rest down; no bias, no draws. */
HALFTONE_API int HALFTONE_CALL suiruiskao8(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Bilevel, bias min(v, 8, 255 - v), four level bands (229/203/176), halves truncated. */
HALFTONE_API int HALFTONE_CALL suiruiskao11(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Bilevel, whole error to one neighbour on a 13-step per-plane cycle that runs on across
 * bands (reset at job start); at most 4 planes, zero w or h refused. */
HALFTONE_API int HALFTONE_CALL highforces(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Bilevel, bias matrix (PuaningFa13) tiled at period 240, curve B/A terms, thirds by direction. */
HALFTONE_API int HALFTONE_CALL Kaocosyx1(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Bilevel, no matrix, curve A at odd x backward, quarter/third splits by a random bit. */
HALFTONE_API int HALFTONE_CALL Kaocosyx10(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Four levels L0..L3, each pixel restricted to the two levels around its input; bias matrix
 * (PuaningFa13) tiled at period 256, curve A/B terms every other column, halves. */
HALFTONE_API int HALFTONE_CALL Kaocosyx13(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Kaocosyx13 without the matrix; the whole error goes ahead or down by a random bit. */
HALFTONE_API int HALFTONE_CALL Kaocosyx14(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* Bilevel halving; the layer table (NiceMents) adds a per-level 16 x 16 tile term to each
 * pixel, the tile restarting with every band; seeds at job start. */
HALFTONE_API int HALFTONE_CALL CrisixOut(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Bilevel, curve terms, thirds, halves or whole error by level band and random draws. */
HALFTONE_API int HALFTONE_CALL CrisixOut31(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);

/* ---- Matrix, pattern and table loaders (files under "<host folder>/Moths/") -------------- */
/* Loaded tables stay in force until the same loader runs again. Every load records its code for
 * halftone_last_load_status(). No file, however malformed, makes a loader read or write outside
 * its table: sizes a file claims are checked first, and a file that breaks its format is refused
 * with HALFTONE_ERR_BAD_FILE, leaving the table as it was. Missing files, folders, devices and
 * unreadable files do not open (20101). A short file keeps the rows or patterns read before it
 * ran out (20103). */
#define HALFTONE_ERR_BAD_FILE 20104 /* file breaks its format; table unchanged */

/* 8-bit bitmap: 14 + 40 header bytes, then `height` rows of `width` bytes, bottom row first,
 * from the pixel offset; value = threshold. Width or height below 0 or above 256: refused.
 * Returns 0 whatever happened; a b ignored. */
HALFTONE_API int HALFTONE_CALL PuaningFa(const char *name, int a, int b);
/* PuaningFa, then after a complete load the bias matrix = trunc((m - 127) * 0.4). Returns 0. */
HALFTONE_API int HALFTONE_CALL PuaningFa13(const char *name, int a, int b);
/* Headerless 1-bit stack of 256 patterns, a pixels by b rows each, lightest first. a must be a
 * multiple of 8 in 8..256 and b in 1..256, else 20104 and nothing changes; with valid sizes the
 * pattern geometry and edge masks change even if the file then fails. Returns the code. */
HALFTONE_API int HALFTONE_CALL KaiDuaning(const char *name, int a, int b);
/* KaiDuaning for 2-bit patterns (a a multiple of 4); level 255 is cleared after a full load. */
HALFTONE_API int HALFTONE_CALL NingJing(const char *name, int a, int b);
/* Text table of up to 65,536 numbers separated by spaces or carriage returns (the last byte of
 * the file is not read), filling 256 16 x 16 layers column by column. Empty files, files over
 * 8 MiB (20302), more numbers or tokens over 19 characters: refused. Returns 0. */
HALFTONE_API int HALFTONE_CALL NiceMents(const char *name, int a, int b);
/* Reads nothing, changes nothing, returns 0. */
HALFTONE_API int HALFTONE_CALL PuaningFaAM(const char *name, int a, int b);
/* Builds the 16 x 16 ordered-dither matrix. Returns 0. */
HALFTONE_API int HALFTONE_CALL SincesKai(void);

/* ---- Pattern and threshold screens ------------------------------------------------------- */
/* Pattern screens copy each run of equal samples from its level's pattern; the last pixel of a
 * row stays empty when it differs from the one before it. All tile from row 0 in every band. */

/* 1 bit, tiled at the geometry of the last pattern load (load with KaiDuaning before use). */
HALFTONE_API int HALFTONE_CALL Sonicksure(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* 1 bit, 256 x 256 tile. */
HALFTONE_API int HALFTONE_CALL MutexWindow(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* Same dots as MutexWindow. */
HALFTONE_API int HALFTONE_CALL MutexWindow_Bak(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* 2 bits from the NingJing stack, 256 x 256 tile. */
HALFTONE_API int HALFTONE_CALL TextDownload(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* 1 bit: dot where v <= bitmap[(y + 16p) % 256][(x + 16p) % 256]. */
HALFTONE_API int HALFTONE_CALL WindowText(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);
/* 1 bit: dot where v < Bayer[y % 16][x % 16] (load with SincesKai). */
HALFTONE_API int HALFTONE_CALL Kaocosyx(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* 1 bit, built-in clustered tile, dot where v < 2M - 1; at most 12 planes (else 20401). */
HALFTONE_API int HALFTONE_CALL WindowTextAM1(unsigned char *src, unsigned char *dst, unsigned int w, unsigned int h, unsigned int flags);
/* 1 bit, built-in dispersed tile, a job over the error rows (row 0 adds the carry row); at most
 * 12 planes. */
HALFTONE_API int HALFTONE_CALL WindowTextAM(unsigned char *src, unsigned char *dst, int w, int h, unsigned int flags);

/* ---- Rotated and four-way bilevel diffusion with level lookup (one plane, no flags) ------ */
/* One plane of w x h samples (src rows ((w * 8 + 31) >> 5) * 4 bytes apart) is mapped through
 * lookup[256] (signed; identity gives plain 0..255 diffusion) and diffused serpentine to 1 bit a
 * pixel, a dot where the value is below 129. The random choice uses the library's own copy of
 * the C runtime rand() (state * 214013 + 2531011, 15-bit result), per calling thread, seeded
 * from the clock at every call (halftone_set_fixed_time applies). Every call is a whole job; the
 * sixth argument is not read. Returns 0, or 20401 for w or h below 1 or a NULL src, dst or lookup.
 * TURNED members write w rows of ((h + 31) >> 5) * 4 bytes, ROWS members h rows of
 * ((w + 31) >> 5) * 4 bytes, and clear exactly that before writing.
 * sdicxx78xy and ixndiwkc76y also OR the last input row, unturned, into the buffer from byte
 * (h - 1) * ((w + 31) >> 5) * 4 on: their buffer must hold the larger of
 * w * ((h + 31) >> 5) * 4 and h * ((w + 31) >> 5) * 4 bytes, and bytes past the cleared part
 * are OR-ed into, not cleared. The reference forms write through dst and never replace it. */

#ifdef __cplusplus
#  define HALFTONE_DST_REF unsigned char *&dst
#else
#  define HALFTONE_DST_REF unsigned char **dst
#endif
/* Turned a quarter: input (x, y) at output row w - 1 - x, column h - 1 - y; the last input
 * row unturned (above), so output column 0 stays empty. */
HALFTONE_API int HALFTONE_CALL sdicxx78xy(unsigned char *src, HALFTONE_DST_REF, int w, int h, int *lookup, unsigned char *sixth);
/* Transposed: input (x, y) at output row x, column y; the last input row unturned, so output
 * column h - 1 stays empty. */
HALFTONE_API int HALFTONE_CALL ixndiwkc76y(unsigned char *src, HALFTONE_DST_REF, int w, int h, int *lookup, unsigned char *sixth);
/* Turned a quarter like sdicxx78xy, the last input row too (output column 0 filled). */
HALFTONE_API int HALFTONE_CALL ghskdjiekld(unsigned char *src, HALFTONE_DST_REF, int w, int h, int *lookup, unsigned char *sixth);
/* Transposed like ixndiwkc76y, the last input row too. */
HALFTONE_API int HALFTONE_CALL tishduth29dmc(unsigned char *src, unsigned char *dst, int w, int h, int *lookup, unsigned char *sixth);
/* Not turned: input row y at output row h - 1 - y. */
HALFTONE_API int HALFTONE_CALL nchsuw56xd(unsigned char *src, unsigned char *dst, int w, int h, int *lookup, unsigned char *sixth);
/* Forward (even) rows at their own output row; backward rows and the last row at output row
 * h - 1 - y, byte (w - 1 - x) / 8, bit (x + 8 - h % 8) % 8 from the least significant bit. */
HALFTONE_API int HALFTONE_CALL fdxin324c(unsigned char *src, unsigned char *dst, int w, int h, int *lookup, unsigned char *sixth);
/* Whole error to one of four neighbours (along, below ahead, below, below behind) by a 2-bit
 * draw; output row for row, pixel x of row y at output row y. */
HALFTONE_API int HALFTONE_CALL kajdjigc23kdh(unsigned char *src, unsigned char *dst, int w, int h, int *lookup, unsigned char *sixth);
/* xinskdn34skx and shdeiznc45kdi exist only so that hosts resolving every name load: they
 * read and write nothing and return HALFTONE_ERR_NOT_PROVIDED (20501). */
HALFTONE_API int HALFTONE_CALL xinskdn34skx(unsigned char *src, unsigned char *dst, int w, int h, int *lookup, unsigned char *sixth);
HALFTONE_API int HALFTONE_CALL shdeiznc45kdi(unsigned char *src, unsigned char *dst, int w, int h, int *lookup, unsigned char *sixth);

/* ---- Job signalling ---------------------------------------------------------------------- */
/* A pair of unnamed auto-reset events for pacing the host's printing threads: "ready" is made
 * signalled, "done" not; the library never sets either. */

/* Makes both events and clears the job record. Returns 0. */
HALFTONE_API int HALFTONE_CALL khjhusecx(void);
/* Waits on "done" up to 50 times `timeout` milliseconds, then on "ready" up to 30 times.
 * Returns 0 when both came in time, 1 when "done" never came but "ready" did, 2 when "ready"
 * never came. Right after khjhusecx that is 1 (after 50 timeouts); the next call gives 2.
 * Events never made or closed end their wait at once: 0 without delay. */
HALFTONE_API int HALFTONE_CALL sinxcdke34i(unsigned int timeout);
/* Closes both events; harmless when already closed. Returns 1. */
HALFTONE_API int HALFTONE_CALL giwncwcg7w(void);

#ifdef __cplusplus
}
#endif

#endif /* HALFTONE_HALFTONE_H */
