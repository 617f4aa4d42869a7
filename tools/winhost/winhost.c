/*
 * printhost: loads the halftoning library the way a print host does - at run time, by name -
 * resolves every exported routine, and halftones a fixed job with every method of the
 * registry. The dot planes go to one file, so that builds of the library for different
 * platforms can be compared byte for byte. Built for Windows (LoadLibrary/GetProcAddress)
 * and natively (dlopen/dlsym) from this one source.
 *
 *   printhost <library file> <output file>
 *
 * The library reads its tone-curve file from the folder of this program.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "abi_names.h"
#include "halftone/halftone.h"

#ifdef _WIN32
#include <direct.h>
#include <windows.h>
typedef HMODULE Library;
#define PATH_SEP "\\"
#else
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>
typedef void *Library;
#define PATH_SEP "/"
#endif

typedef void (*AnyFn)(void);

static Library OpenLibrary(const char *path) {
#ifdef _WIN32
  return LoadLibraryA(path);
#else
  return dlopen(path, RTLD_NOW | RTLD_LOCAL);
#endif
}

static AnyFn Resolve(Library lib, const char *name) {
#ifdef _WIN32
  return (AnyFn)GetProcAddress(lib, name);
#else
  void *p = dlsym(lib, name);
  AnyFn fn;
  memcpy(&fn, &p, sizeof fn); /* object to function pointer, the POSIX way */
  return fn;
#endif
}

/* Every export is called through a pointer of the library's calling convention (cdecl, or stdcall
 * where the library was built for WINAPI hosts). */
typedef halftone_band_fn BandFn;
typedef halftone_band_unsigned_fn BandUnsignedFn;
typedef halftone_plane_fn PlaneFn;
typedef halftone_lookup_ref_fn LookupRefFn;
typedef halftone_lookup_fn LookupFn;

/* The job: a fixed clock, three bands of three planes, a width that fills no word. */
#define FIXED_TIME 1700000123LL
#define JOB_WIDTH 75
#define JOB_PLANES 3
#define JOB_BANDS 3
static const int kBandRows[JOB_BANDS] = {6, 5, 7};
static const unsigned kBandPhases[JOB_BANDS] = {HALFTONE_PHASE_START, HALFTONE_PHASE_MIDDLE, HALFTONE_PHASE_END};
#define LOOKUP_WIDTH 45
#define LOOKUP_HEIGHT 29
#define PREFILL 0xCD /* bytes a routine leaves alone keep this */
#define SIGNAL_TIMEOUT_MS 1u

static FILE *out;

static size_t RowBytes(size_t pixels, size_t bits) { return ((pixels * bits + 31) >> 5) * 4; }

/* Deterministic samples: a ramp across the row, a slower one down the page, and noise. */
static unsigned noise_state = 20240601u;
static unsigned char Sample(size_t x, size_t y) {
  noise_state = noise_state * 1664525u + 1013904223u;
  return (unsigned char)((x * 255 / JOB_WIDTH + y * 7 + (noise_state >> 27)) & 0xFF);
}
static void FillRaster(unsigned char *buf, size_t bytes, size_t stride, size_t y0) {
  size_t i;
  for (i = 0; i < bytes; ++i) buf[i] = Sample(i % stride, y0 + i / stride);
}

static void Record(const char *name, const char *what, int rc, const unsigned char *bytes, size_t n) {
  fprintf(out, "%s %s rc=%d bytes=%lu\n", name, what, rc, (unsigned long)n);
  if (n != 0) fwrite(bytes, 1, n, out);
  fputc('\n', out);
}

static void *Allocate(size_t n) {
  void *p = malloc(n == 0 ? 1 : n);
  if (p == NULL) {
    fprintf(stderr, "printhost: out of memory\n");
    exit(4);
  }
  return p;
}

static void RunBandJob(const halftone_method_info *m) {
  size_t src_stride = RowBytes(JOB_WIDTH, 8), dst_stride = RowBytes(JOB_WIDTH, (size_t)m->output_bits);
  size_t y0 = 0;
  int band;
  for (band = 0; band < JOB_BANDS; ++band) {
    size_t rows = (size_t)kBandRows[band] * JOB_PLANES;
    unsigned char *src = Allocate(src_stride * rows), *dst = Allocate(dst_stride * rows);
    unsigned flags = HALFTONE_FLAGS(JOB_PLANES, kBandPhases[band]);
    int rc;
    char what[32];
    FillRaster(src, src_stride * rows, src_stride, y0);
    memset(dst, PREFILL, dst_stride * rows);
    if (m->entry_kind == HALFTONE_ENTRY_BAND)
      rc = ((BandFn)m->entry)(src, dst, JOB_WIDTH, kBandRows[band], flags);
    else
      rc = ((BandUnsignedFn)m->entry)(src, dst, JOB_WIDTH, (unsigned)kBandRows[band], flags);
    sprintf(what, "band%d", band);
    Record(m->name, what, rc, dst, dst_stride * rows);
    y0 += (size_t)kBandRows[band];
    free(src);
    free(dst);
  }
}

static void RunPlane(const halftone_method_info *m) {
  size_t src_stride = RowBytes(JOB_WIDTH, 8), dst_stride = RowBytes(JOB_WIDTH, (size_t)m->output_bits);
  size_t h = (size_t)kBandRows[0];
  unsigned char *src = Allocate(src_stride * h), *dst = Allocate(dst_stride * h);
  int rc;
  FillRaster(src, src_stride * h, src_stride, 0);
  memset(dst, PREFILL, dst_stride * h);
  rc = ((PlaneFn)m->entry)(src, dst, JOB_WIDTH, (unsigned)h);
  Record(m->name, "plane", rc, dst, dst_stride * h);
  free(src);
  free(dst);
}

/* One plane through a curved lookup table with values a little outside 0..255. */
static void RunLookup(const halftone_method_info *m) {
  size_t src_stride = RowBytes(LOOKUP_WIDTH, 8);
  size_t turned = LOOKUP_WIDTH * RowBytes(LOOKUP_HEIGHT, 1), flat = LOOKUP_HEIGHT * RowBytes(LOOKUP_WIDTH, 1);
  size_t dst_bytes = (turned > flat ? turned : flat) + 16;
  unsigned char *src = Allocate(src_stride * LOOKUP_HEIGHT), *dst = Allocate(dst_bytes);
  int lookup[256];
  int i, rc;
  for (i = 0; i < 256; ++i) lookup[i] = (i * i) / 240 - 8;
  FillRaster(src, src_stride * LOOKUP_HEIGHT, src_stride, 0);
  memset(dst, PREFILL, dst_bytes);
  if (m->entry_kind == HALFTONE_ENTRY_LOOKUP_REF) {
    unsigned char *ref = dst;
    rc = ((LookupRefFn)m->entry)(src, &ref, LOOKUP_WIDTH, LOOKUP_HEIGHT, lookup, NULL);
    if (ref != dst) rc = -1;
  } else {
    rc = ((LookupFn)m->entry)(src, dst, LOOKUP_WIDTH, LOOKUP_HEIGHT, lookup, NULL);
  }
  Record(m->name, "lookup", rc, dst, dst_bytes);
  free(src);
  free(dst);
}

/* ---- Screening tables: written into the Moths folder beside this program, then loaded ---- */

#define TABLE_SIDE 256
#define MONO_ROW_BYTES 32
#define DUO_ROW_BYTES 64

/* The folder of this program, ending in a separator, as the library finds it. */
static int ProgramFolder(char *buf, size_t size) {
  size_t n;
  char *cut;
#ifdef _WIN32
  n = GetModuleFileNameA(NULL, buf, (DWORD)size);
  if (n == 0 || n >= size) return 0;
  cut = strrchr(buf, '\\');
#else
  ssize_t got = readlink("/proc/self/exe", buf, size - 1);
  if (got <= 0) return 0;
  n = (size_t)got;
  buf[n] = '\0';
  cut = strrchr(buf, '/');
#endif
  if (cut == NULL) return 0;
  cut[1] = '\0';
  return 1;
}

static int WriteBytes(const char *path, const unsigned char *bytes, size_t n) {
  FILE *f = fopen(path, "wb");
  int ok;
  if (f == NULL) return 0;
  ok = fwrite(bytes, 1, n, f) == n;
  return fclose(f) == 0 && ok;
}

static void Put32(unsigned char *p, unsigned long v) {
  p[0] = (unsigned char)v;
  p[1] = (unsigned char)(v >> 8);
  p[2] = (unsigned char)(v >> 16);
  p[3] = (unsigned char)(v >> 24);
}

/* A 256 x 256 8-bit bitmap of thresholds, a 1-bit and a 2-bit pattern stack whose patterns
 * vary by level, row and byte, and a layer table of small signed numbers. */
static int WriteTableFiles(const char *moths) {
  char path[1024];
  size_t x, y, k, n, bytes;
  unsigned char *buf;
  FILE *f;
  int ok = 1;

  bytes = 54 + (size_t)TABLE_SIDE * TABLE_SIDE;
  buf = (unsigned char *)calloc(1, bytes + (size_t)TABLE_SIDE * TABLE_SIDE * DUO_ROW_BYTES);
  if (buf == NULL) return 0;
  buf[0] = 'B';
  buf[1] = 'M';
  Put32(buf + 2, (unsigned long)bytes);
  Put32(buf + 10, 54);
  Put32(buf + 14, 40);
  Put32(buf + 18, TABLE_SIDE);
  Put32(buf + 22, TABLE_SIDE);
  buf[26] = 1;
  buf[28] = 8;
  for (y = 0; y < TABLE_SIDE; ++y)
    for (x = 0; x < TABLE_SIDE; ++x) buf[54 + y * TABLE_SIDE + x] = (unsigned char)((x * 7 + y * 13 + ((x * y) >> 5)) & 0xFF);
  sprintf(path, "%s%s", moths, "matrix.bmp");
  ok &= WriteBytes(path, buf, bytes);

  for (n = 1; n <= 2; ++n) {
    size_t row_bytes = n == 1 ? MONO_ROW_BYTES : DUO_ROW_BYTES;
    bytes = (size_t)TABLE_SIDE * TABLE_SIDE * row_bytes;
    for (k = 0; k < TABLE_SIDE; ++k)
      for (y = 0; y < TABLE_SIDE; ++y)
        for (x = 0; x < row_bytes; ++x)
          buf[(k * TABLE_SIDE + y) * row_bytes + x] = (unsigned char)((k * 37 + y * 11 + x * 5 + (k * y >> 3)) & 0xFF);
    sprintf(path, "%s%s", moths, n == 1 ? "mono.bin" : "duo.bin");
    ok &= WriteBytes(path, buf, bytes);
  }
  free(buf);

  sprintf(path, "%s%s", moths, "layers.txt");
  f = fopen(path, "wb");
  if (f == NULL) return 0;
  for (n = 0; n < 256 * 16 * 16; ++n) fprintf(f, "%d ", (int)((n * 7919u) % 61u) - 30);
  fputs("\r\n", f);
  return fclose(f) == 0 && ok;
}

static void LoadTables(Library lib) {
  char moths[1024];
  typedef int (HALFTONE_CALL *LoaderFn)(const char *, int, int);
  if (!ProgramFolder(moths, sizeof moths - 16)) {
    fprintf(stderr, "printhost: cannot find its own folder\n");
    exit(2);
  }
  strcat(moths, "Moths");
#ifdef _WIN32
  _mkdir(moths);
#else
  mkdir(moths, 0755);
#endif
  strcat(moths, PATH_SEP);
  if (!WriteTableFiles(moths)) {
    fprintf(stderr, "printhost: cannot write the table files\n");
    exit(2);
  }
  fprintf(out, "loaders PuaningFa13=%d", ((LoaderFn)Resolve(lib, "PuaningFa13"))("matrix.bmp", 0, 0));
  fprintf(out, "/%d", ((int (HALFTONE_CALL *)(void))Resolve(lib, "halftone_last_load_status"))());
  fprintf(out, " NiceMents=%d", ((LoaderFn)Resolve(lib, "NiceMents"))("layers.txt", 0, 0));
  fprintf(out, "/%d", ((int (HALFTONE_CALL *)(void))Resolve(lib, "halftone_last_load_status"))());
  fprintf(out, " SincesKai=%d", ((int (HALFTONE_CALL *)(void))Resolve(lib, "SincesKai"))());
  fprintf(out, " missing=%d", ((LoaderFn)Resolve(lib, "KaiDuaning"))("no-such-file", 256, 256));
  fprintf(out, "\n");
}

/* The two pattern loaders share the edge masks and geometry: like a host switching between
 * 1-bit and 2-bit pattern screens, reload the stack a screen needs right before it runs. */
static void LoadPatternsFor(Library lib, const halftone_method_info *m) {
  typedef int (HALFTONE_CALL *LoaderFn)(const char *, int, int);
  if (m->tables & HALFTONE_TABLE_DUO)
    fprintf(out, "%s NingJing=%d\n", m->name, ((LoaderFn)Resolve(lib, "NingJing"))("duo.bin", 256, 256));
  if (m->tables & HALFTONE_TABLE_MONO)
    fprintf(out, "%s KaiDuaning=%d\n", m->name, ((LoaderFn)Resolve(lib, "KaiDuaning"))("mono.bin", 256, 256));
}

int main(int argc, char **argv) {
  AnyFn fns[sizeof kAbiNames / sizeof kAbiNames[0]];
  size_t n_names = sizeof kAbiNames / sizeof kAbiNames[0], i, missing = 0;
  Library lib;
  int count, index, methods_run = 0;

  if (argc != 3) {
    fprintf(stderr, "usage: printhost <library file> <output file>\n");
    return 1;
  }
  lib = OpenLibrary(argv[1]);
  if (lib == NULL) {
    fprintf(stderr, "printhost: cannot load %s\n", argv[1]);
    return 2;
  }
  for (i = 0; i < n_names; ++i) {
    fns[i] = Resolve(lib, kAbiNames[i]);
    if (fns[i] == NULL) {
      fprintf(stderr, "printhost: export missing: %s\n", kAbiNames[i]);
      ++missing;
    }
  }
  if (missing != 0) return 3;

#define FN(type, name) ((type)Resolve(lib, name))
  out = fopen(argv[2], "wb");
  if (out == NULL) {
    fprintf(stderr, "printhost: cannot write %s\n", argv[2]);
    return 2;
  }
  fprintf(out, "halftone %s, %lu exports\n", FN(const char *(HALFTONE_CALL *)(void), "halftone_version")(), (unsigned long)n_names);

  FN(void (HALFTONE_CALL *)(long long), "halftone_set_fixed_time")(FIXED_TIME);
  /* Tone curves from the folder of this program (curves 1 and 4), five level values. */
  fprintf(out, "Itsdiufiavs rc=%d ", FN(int (HALFTONE_CALL *)(int, const char *), "Itsdiufiavs")(2, "0,60,130,200,255,"));
  fprintf(out, "load=%d\n", FN(int (HALFTONE_CALL *)(void), "halftone_last_load_status")());

  LoadTables(lib);

  count = FN(int (HALFTONE_CALL *)(void), "halftone_method_count")();
  for (index = 0; index < count; ++index) {
    halftone_method_info m;
    if (FN(int (HALFTONE_CALL *)(int, halftone_method_info *), "halftone_method_get")(index, &m) != 0) {
      fprintf(stderr, "printhost: method %d unreadable\n", index);
      return 5;
    }
    LoadPatternsFor(lib, &m);
    switch (m.entry_kind) {
      case HALFTONE_ENTRY_BAND:
      case HALFTONE_ENTRY_BAND_UNSIGNED:
        RunBandJob(&m);
        break;
      case HALFTONE_ENTRY_PLANE:
        RunPlane(&m);
        break;
      case HALFTONE_ENTRY_LOOKUP_REF:
      case HALFTONE_ENTRY_LOOKUP:
        RunLookup(&m);
        break;
      default:
        fprintf(stderr, "printhost: %s has unknown entry kind %d\n", m.name, m.entry_kind);
        return 5;
    }
    ++methods_run;
  }

  {
    /* The two routines that exist only to be resolved: they must write nothing. */
    static const char *const kNotProvided[] = {"xinskdn34skx", "shdeiznc45kdi"};
    unsigned char plane[64], dots[64];
    int lookup[256] = {0};
    memset(plane, 0, sizeof plane);
    for (i = 0; i < 2; ++i) {
      memset(dots, PREFILL, sizeof dots);
      Record(kNotProvided[i], "unprovided", FN(LookupFn, kNotProvided[i])(plane, dots, 8, 8, lookup, NULL), dots,
             sizeof dots);
    }
  }

  /* Job events: ready found once (1 after 50 timeouts), then neither (2), then closed (0). */
  fprintf(out, "khjhusecx=%d", FN(int (HALFTONE_CALL *)(void), "khjhusecx")());
  fprintf(out, " wait=%d", FN(int (HALFTONE_CALL *)(unsigned), "sinxcdke34i")(SIGNAL_TIMEOUT_MS));
  fprintf(out, " wait=%d", FN(int (HALFTONE_CALL *)(unsigned), "sinxcdke34i")(SIGNAL_TIMEOUT_MS));
  fprintf(out, " close=%d", FN(int (HALFTONE_CALL *)(void), "giwncwcg7w")());
  fprintf(out, " close=%d", FN(int (HALFTONE_CALL *)(void), "giwncwcg7w")());
  fprintf(out, " wait=%d\n", FN(int (HALFTONE_CALL *)(unsigned), "sinxcdke34i")(SIGNAL_TIMEOUT_MS));
#undef FN

  if (fclose(out) != 0) {
    fprintf(stderr, "printhost: write failed\n");
    return 2;
  }
  printf("printhost: %lu exports resolved, %d methods run\n", (unsigned long)n_names, methods_run);
  return 0;
}
