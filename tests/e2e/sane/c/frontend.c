/* A frontend in C, linked to the backend alone under the plain names of the standard
 * (https://sane-project.gitlab.io/standard/): the calls in the order that it describes, then in
 * wrong ones.
 *
 *   frontend NAME >page.pgm     scans NAME in grey at 100 dpi
 *   frontend NAME feeder        cancels after each page of the feeder; says how many there were
 *
 * Exit status: 0; 1 with a line on standard error that tells what was not as it has to be. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <sane/sane.h>
#include <sane/saneopts.h>

static void fail(const char* what, int line) {
  fprintf(stderr, "frontend.c:%d: %s\n", line, what);
  exit(1);
}

#define EXPECT(condition)                         \
  do {                                            \
    if (!(condition)) fail(#condition, __LINE__); \
  } while (0)
#define EXPECT_GOOD(call) EXPECT((call) == SANE_STATUS_GOOD)

/* The number of the option called `name`. */
static SANE_Int option_called(SANE_Handle handle, const char* name) {
  SANE_Int count = 0;
  EXPECT_GOOD(sane_control_option(handle, 0, SANE_ACTION_GET_VALUE, &count, NULL));
  for (SANE_Int i = 1; i < count; ++i) {
    const SANE_Option_Descriptor* option = sane_get_option_descriptor(handle, i);
    EXPECT(option != NULL);
    if (option->type != SANE_TYPE_GROUP && strcmp(option->name, name) == 0) return i;
  }
  fail(name, __LINE__);
  return -1;
}

static void choose(SANE_Handle handle) {
  char mode[] = SANE_VALUE_SCAN_MODE_GRAY "\0 room for the longest word";
  SANE_Word resolution = 100;
  SANE_Int info = 0;
  EXPECT_GOOD(sane_control_option(handle, option_called(handle, SANE_NAME_SCAN_MODE),
                                  SANE_ACTION_SET_VALUE, mode, &info));
  EXPECT((info & SANE_INFO_RELOAD_PARAMS) != 0);
  EXPECT_GOOD(sane_control_option(handle, option_called(handle, SANE_NAME_SCAN_RESOLUTION),
                                  SANE_ACTION_SET_VALUE, &resolution, &info));
}

/* Reads to the end of the page; what comes goes to `out` unless that is null. */
static long read_page(SANE_Handle handle, FILE* out) {
  SANE_Byte buffer[1000];
  SANE_Int length = 0;
  long bytes = 0;
  SANE_Status status;
  while ((status = sane_read(handle, buffer, sizeof buffer, &length)) == SANE_STATUS_GOOD) {
    EXPECT(length > 0 && length <= (SANE_Int)sizeof buffer);
    if (out != NULL) fwrite(buffer, 1, (size_t)length, out);
    bytes += length;
  }
  EXPECT(status == SANE_STATUS_EOF);
  EXPECT(length == 0);
  return bytes;
}

static void scan_as_described(const char* name) {
  SANE_Int version = 0;
  const SANE_Device** devices = NULL;
  SANE_Handle handle = NULL;
  SANE_Parameters page;
  EXPECT_GOOD(sane_init(&version, NULL));
  EXPECT(SANE_VERSION_MAJOR(version) == SANE_CURRENT_MAJOR);
  EXPECT_GOOD(sane_get_devices(&devices, SANE_FALSE));
  EXPECT(devices != NULL && devices[0] != NULL);
  EXPECT_GOOD(sane_open(name, &handle));
  choose(handle);
  EXPECT_GOOD(sane_start(handle));
  EXPECT_GOOD(sane_get_parameters(handle, &page));
  EXPECT(page.format == SANE_FRAME_GRAY && page.depth == 8 && page.last_frame == SANE_TRUE);
  printf("P5\n%d %d\n255\n", page.pixels_per_line, page.lines);
  EXPECT(read_page(handle, stdout) == (long)page.bytes_per_line * page.lines);
  sane_cancel(handle);
  sane_close(handle);
  sane_exit();
}

static void empty_the_feeder(const char* name) {
  SANE_Handle handle = NULL;
  SANE_Status status;
  char source[] = "ADF\0 room for the longest word";
  int pages = 0;
  EXPECT_GOOD(sane_init(NULL, NULL));
  EXPECT_GOOD(sane_open(name, &handle));
  choose(handle);
  EXPECT_GOOD(sane_control_option(handle, option_called(handle, SANE_NAME_SCAN_SOURCE),
                                  SANE_ACTION_SET_VALUE, source, NULL));
  for (; (status = sane_start(handle)) == SANE_STATUS_GOOD && pages < 10; ++pages) {
    EXPECT(read_page(handle, NULL) > 0);
    sane_cancel(handle);
  }
  EXPECT(status == SANE_STATUS_NO_DOCS);
  sane_exit();
  printf("%d pages\n", pages);
}

static void call_in_wrong_orders(const char* name) {
  SANE_Handle handle = NULL;
  SANE_Byte byte = 0;
  SANE_Int length = 7, fd = -1;
  SANE_Word word = 0;
  SANE_Parameters page;
  const SANE_Device** devices = NULL;

  sane_exit(); /* before any init, and twice */
  sane_exit();
  EXPECT(sane_open(name, &handle) != SANE_STATUS_GOOD);
  EXPECT(sane_get_devices(&devices, SANE_FALSE) != SANE_STATUS_GOOD);
  sane_cancel(NULL);
  sane_close(NULL);
  EXPECT(sane_get_option_descriptor(NULL, 0) == NULL);

  EXPECT_GOOD(sane_init(NULL, NULL));
  EXPECT_GOOD(sane_init(NULL, NULL)); /* again without an exit */
  EXPECT_GOOD(sane_open(name, &handle));
  choose(handle);
  EXPECT(sane_read(handle, &byte, 1, &length) == SANE_STATUS_INVAL && length == 0);
  EXPECT(sane_set_io_mode(handle, SANE_TRUE) == SANE_STATUS_INVAL);
  EXPECT(sane_get_select_fd(handle, &fd) == SANE_STATUS_INVAL);
  sane_cancel(handle);
  EXPECT_GOOD(sane_start(handle));
  EXPECT(sane_start(handle) != SANE_STATUS_GOOD);
  word = 150;
  EXPECT(sane_control_option(handle, option_called(handle, SANE_NAME_SCAN_RESOLUTION),
                             SANE_ACTION_SET_VALUE, &word, NULL) != SANE_STATUS_GOOD);
  EXPECT_GOOD(sane_get_parameters(handle, &page));
  EXPECT(read_page(handle, NULL) == (long)page.bytes_per_line * page.lines);
  EXPECT(sane_read(handle, &byte, 1, &length) != SANE_STATUS_GOOD && length == 0);
  EXPECT_GOOD(sane_start(handle));
  sane_cancel(handle);
  sane_cancel(handle);
  EXPECT(sane_read(handle, &byte, 1, &length) == SANE_STATUS_CANCELLED && length == 0);
  EXPECT_GOOD(sane_start(handle));
  sane_close(handle); /* within a page */
  sane_close(handle); /* and again */
  EXPECT(sane_start(handle) == SANE_STATUS_INVAL);
  EXPECT_GOOD(sane_open(name, &handle));
  EXPECT_GOOD(sane_start(handle));
  sane_exit(); /* within a page, with the handle open */
  EXPECT(sane_read(handle, &byte, 1, &length) == SANE_STATUS_INVAL && length == 0);
}

int main(int argc, char** argv) {
  EXPECT(argc == 2 || (argc == 3 && strcmp(argv[2], "feeder") == 0));
  if (argc == 3) {
    empty_the_feeder(argv[1]);
    return fflush(stdout) == 0 ? 0 : 1;
  }
  EXPECT(strcmp(sane_strstatus(SANE_STATUS_NO_DOCS), "Document feeder out of documents") == 0);
  EXPECT(sane_strstatus((SANE_Status)4711) != NULL);
  call_in_wrong_orders(argv[1]);
  scan_as_described(argv[1]);
  return fflush(stdout) == 0 ? 0 : 1;
}
