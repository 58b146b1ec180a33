/* SPDX-License-Identifier: Apache-2.0 */
/*
 * signal [SECONDS]: the serving cell of LTE and NR 5G, and then every change of its signal, for some seconds or until
 * the end of the input (Ctrl-D) or Ctrl-C.
 */
#include <ox_lyn.h>

#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

/* What is read once and, with a threshold, watched. */
typedef struct {
  uint32_t metric;
  uint32_t indication;
  int64_t threshold; /* 0: not watched */
  const char *name;
  const char *unit;
  double scale; /* values of the API in one unit */
} value_t;

static const value_t values[] = {
    {OX_LYN_GET_REG_STATUS_E, OX_LYN_IND_REG_STATUS_E, 1, "registration status", "", 1},
    {OX_LYN_GET_LTE_SERV_EARFCN_E, 0, 0, "LTE EARFCN", "", 1},
    {OX_LYN_GET_LTE_SERV_PCI_E, 0, 0, "LTE PCI", "", 1},
    {OX_LYN_GET_LTE_SERV_RSRP_E, OX_LYN_IND_LTE_RSRP_E, 2, "LTE RSRP", " dBm", 1},
    {OX_LYN_GET_LTE_SERV_RSRQ_E, OX_LYN_IND_LTE_RSRQ_E, 1, "LTE RSRQ", " dB", 1},
    {OX_LYN_GET_LTE_SERV_SINR_E, OX_LYN_IND_LTE_SINR_E, 10, "LTE SINR", " dB", 10},
    {OX_LYN_GET_NR5G_SERV_EARFCN_E, 0, 0, "NR 5G ARFCN", "", 1},
    {OX_LYN_GET_NR5G_SERV_PCI_E, 0, 0, "NR 5G PCI", "", 1},
    {OX_LYN_GET_NR5G_SERV_RSRP_E, OX_LYN_IND_NR5G_RSRP_E, 2, "NR 5G RSRP", " dBm", 1},
    {OX_LYN_GET_NR5G_SERV_RSRQ_E, OX_LYN_IND_NR5G_RSRQ_E, 1, "NR 5G RSRQ", " dB", 1},
    {OX_LYN_GET_NR5G_SERV_SINR_E, OX_LYN_IND_NR5G_SINR_E, 10, "NR 5G SINR", " dB", 10},
};
enum { VALUES = sizeof(values) / sizeof(values[0]) };

static void print_value(const value_t *value, int64_t number) {
  printf("%s: %.10g%s\n", value->name, (double)number / value->scale, value->unit);
}

/* A delivered record is ours, and so is every block that its ptr leads to. */
static void free_event(ox_lyn_dm_info_t *event) {
  if (event->record_type == OX_LYN_RECORD_ASYNC_E) {
    if (event->metric == OX_LYN_ASYNC_LOC_BATCH_E && event->value.ptr != NULL) {
      free(((ox_lyn_loc_batch_t *)event->value.ptr)->locations);
    }
    free(event->value.ptr);
  } else if (event->metric == OX_LYN_IND_MTPE_STATUS_E || event->metric == OX_LYN_IND_QOS_FLOW_E ||
             event->metric == OX_LYN_IND_PPS_CHANGE_E || event->metric == OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E) {
    free(event->value.ptr);
  }
  free(event);
}

/* Runs on the module's own thread, under its lock: be quick, and call no operation. */
static void on_event(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *event, uint32_t user_data) {
  (void)hndl;
  (void)user_data;
  for (int i = 0; i < VALUES; ++i) {
    if (event->record_type == OX_LYN_RECORD_IND_E && event->metric == values[i].indication) {
      print_value(&values[i], event->value.i64);
    }
  }
  free_event(event);
}

static void print_serving_cell(ox_lyn_hndl_t hndl) {
  for (int i = 0; i < VALUES; ++i) {
    ox_lyn_dm_info_t info = {.record_type = OX_LYN_RECORD_GET_E, .metric = values[i].metric};
    const int32_t status = ox_lyn_get_info(hndl, &info);
    if (status == OX_LYN_SUCCESS) {
      print_value(&values[i], info.value.i64);
    } else if (status == OX_LYN_ERR_INFO_UNAVAILABLE || status == OX_LYN_ERR_SERVICE_UNAVAILABLE) {
      printf("%s: not available\n", values[i].name);
    } else {
      fprintf(stderr, "%s cannot be read: status %" PRId32 "\n", values[i].name, status);
    }
  }
}

static int32_t subscribe(ox_lyn_hndl_t hndl) {
  int32_t status = OX_LYN_SUCCESS;
  for (int i = 0; i < VALUES && status == OX_LYN_SUCCESS; ++i) {
    if (values[i].threshold != 0) {
      ox_lyn_dm_ind_info_t ind = {.record_type = OX_LYN_RECORD_IND_E,
                                  .indication = values[i].indication,
                                  .value_type = OX_LYN_VALUE_INT64_E,
                                  .threshold = values[i].threshold};
      status = ox_lyn_set_ind_info(hndl, &ind);
    }
  }
  return status;
}

static void on_signal(int number) {
  (void)number;
}

/* SIGINT is kept back from all threads, the module's too, but where the main one waits for it. */
static sigset_t catch_interrupt(void) {
  sigset_t interrupt, open;
  struct sigaction action = {.sa_handler = on_signal};
  sigaction(SIGINT, &action, NULL);
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupt, &open);
  sigdelset(&open, SIGINT);
  return open;
}

static time_t now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec;
}

/* Until the seconds are over (0: never), the input ends, or SIGINT comes. */
static void wait_for_end(time_t seconds, const sigset_t *open) {
  const time_t end = now() + seconds;
  char typed[256];
  ssize_t length = 1;
  for (time_t at = now(); length > 0 && (seconds == 0 || at < end); at = now()) {
    const struct timespec left = {.tv_sec = end - at};
    fd_set input;
    FD_ZERO(&input);
    FD_SET(STDIN_FILENO, &input);
    if (pselect(STDIN_FILENO + 1, &input, NULL, NULL, seconds == 0 ? NULL : &left, open) <= 0) {
      return;
    }
    length = read(STDIN_FILENO, typed, sizeof(typed));
  }
}

int main(int argc, char **argv) {
  const sigset_t open = catch_interrupt();
  setvbuf(stdout, NULL, _IOLBF, 0);

  ox_lyn_hndl_t hndl = 0;
  int32_t status = ox_lyn_init(&hndl, 0, on_event);
  if (status != OX_LYN_SUCCESS) {
    fprintf(stderr, "the module cannot be brought up: status %" PRId32 "\n", status);
    return 1;
  }
  print_serving_cell(hndl);
  status = subscribe(hndl);
  if (status == OX_LYN_SUCCESS) {
    wait_for_end(argc > 1 ? strtol(argv[1], NULL, 10) : 0, &open);
  } else {
    fprintf(stderr, "the signal cannot be watched: status %" PRId32 "\n", status);
  }
  ox_lyn_deinit(hndl); /* no callback runs any more */
  return status == OX_LYN_SUCCESS ? 0 : 1;
}
