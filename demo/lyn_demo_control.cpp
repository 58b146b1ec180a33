/* SPDX-License-Identifier: Apache-2.0 */
// Options that control the module: 1 and 2 register and deregister, 3 to 6 manage the indication subscriptions, 10
// prints the usage screen.
#include <cstdio>

#include "lyn_demo.h"

static constexpr uint32_t LYN_DEMO_IND_NAMES = OX_LYN_IND_NR5G_SINR_E + 1;  // those behind have no display name
static constexpr uint32_t LYN_DEMO_MAX_CLEAR = 18;                          // identifiers on one line of option 6
static constexpr uint32_t LYN_DEMO_MAX_IND_LIST = 65536;                    // entries that option 5 will allocate

int32_t lyn_demo_register(const int32_t *, uint32_t) {
  puts("LYN DEMO APP : Register application.");
  const int32_t status = ox_lyn_init(&lyn_demo_hndl, 0, lyn_demo_user_cb);
  if (status == OX_LYN_SUCCESS) {
    puts("LYN DEMO APP : Application registered successfully.");
  } else {
    printf("LYN DEMO APP : Register application failed with status[%d].\n", status);
  }
  return status;
}

// The handle stays as it is: later options show what the API says of a void one.
int32_t lyn_demo_deregister(const int32_t *, uint32_t) {
  puts("LYN DEMO APP : Deregister application.");
  const int32_t status = ox_lyn_deinit(lyn_demo_hndl);
  if (status == OX_LYN_SUCCESS) {
    puts("LYN DEMO APP : Application deregistered successfully.");
  } else {
    printf("LYN DEMO APP : Deregister application failed with status[%d].\n", status);
  }
  return status;
}

// Every indication passes, also those that cannot be subscribed, which the API refuses; other numbers become 0.
static uint32_t lyn_demo_known_ind(int32_t option) {
  return option > OX_LYN_IND_INVALID_E && option < OX_LYN_IND_COUNT ? static_cast<uint32_t>(option)
                                                                    : static_cast<uint32_t>(OX_LYN_IND_INVALID_E);
}

int32_t lyn_demo_set_ind(const int32_t *options, uint32_t count) {
  if (count != 2 && count != 3) {
    puts("LYN DEMO APP : Set LTE/5G indication failed - invalid options passed.");
    return 0;
  }
  ox_lyn_dm_ind_info_t ind = {};
  ind.record_type = OX_LYN_RECORD_IND_E;
  ind.indication = lyn_demo_known_ind(options[1]);
  const char *name = lyn_demo_ind_name(ind.indication);
  printf("LYN DEMO APP : Set LTE/5G [%s] indication information.\n", name);
  if (count == 3) {
    ind.value_type = OX_LYN_VALUE_INT64_E;
    ind.threshold = static_cast<uint32_t>(options[2]);  // widened unsigned: -1 becomes 4294967295, deliberately
    printf("LYN DEMO APP : Set LTE/5G [%s] indication with value[%d].\n", name, options[2]);
  }
  const int32_t status = ox_lyn_set_ind_info(lyn_demo_hndl, &ind);
  if (status == OX_LYN_SUCCESS) {
    printf("LYN DEMO APP : LTE/5G [%s] indication information set successfully.\n", name);
  } else {
    printf("LYN DEMO APP : Set LTE/5G [%s] indication information failed with status[%d].\n", name, status);
  }
  return status;
}

int32_t lyn_demo_get_ind_count(const int32_t *, uint32_t) {
  uint32_t ind_count = 0;
  puts("LYN DEMO APP : Get LTE/5G indication count.");
  const int32_t status = ox_lyn_get_ind_count(lyn_demo_hndl, &ind_count);
  if (status == OX_LYN_SUCCESS) {
    printf("LYN DEMO APP : LTE/5G indication count - [%u].\n", ind_count);
  } else {
    printf("LYN DEMO APP : Get LTE/5G indication count failed with status[%d].\n", status);
  }
  return status;
}

// Zeroed, so that entries which the API leaves alone print as the invalid indication.
static lyn_demo_block_t<uint32_t[]> lyn_demo_alloc_inds(uint32_t entries) {
  if (entries > LYN_DEMO_MAX_IND_LIST) {
    return nullptr;
  }
  return lyn_demo_block_t<uint32_t[]>(static_cast<uint32_t *>(calloc(entries == 0 ? 1 : entries, sizeof(uint32_t))));
}

int32_t lyn_demo_get_ind_list(const int32_t *options, uint32_t count) {
  if (count < 2) {
    puts("LYN DEMO APP : Get LTE/5G/GPS indication list failed - invalid options passed.");
    return 0;
  }
  puts("LYN DEMO APP : Get LTE/5G/GPS indication list.");
  const uint32_t entries = static_cast<uint32_t>(options[1]);
  const lyn_demo_block_t<uint32_t[]> inds = lyn_demo_alloc_inds(entries);
  if (inds == nullptr) {
    puts("LYN DEMO APP : Memory allocation failure for LYN DM indication list");
    return 0;
  }
  // Deliberate: a list of none is asked for and printed, too, although the API refuses it.
  const int32_t status = ox_lyn_get_ind_list(lyn_demo_hndl, inds.get(), entries);
  if (status != OX_LYN_SUCCESS) {
    printf("LYN DEMO APP : Get LTE/5G indication list failed with status[%d].\n", status);
    return status;
  }
  printf("LYN DEMO APP : LTE/5G indication list retrieved successfully.\n");
  for (uint32_t i = 0; i < entries; ++i) {
    printf("LYN DEMO APP : Indication #%d - [%s]\n", static_cast<int>(i), lyn_demo_ind_name(inds[i]));
  }
  return 0;
}

int32_t lyn_demo_clear_ind_list(const int32_t *options, uint32_t count) {
  uint32_t inds[LYN_DEMO_MAX_CLEAR] = {};
  if (count < 2 || count > LYN_DEMO_MAX_CLEAR + 1) {
    puts("LYN DEMO APP : Clear LTE/5G indication list failed - invalid options passed.");
    return 0;
  }
  puts("LYN DEMO APP : Clear LTE/5G indication list.");
  for (uint32_t i = 1; i < count; ++i) {
    inds[i - 1] = lyn_demo_known_ind(options[i]);
    printf("LYN DEMO APP : Clear indication #%d - [%s]\n", static_cast<int>(i), lyn_demo_ind_name(inds[i - 1]));
  }
  const int32_t status = ox_lyn_clear_ind_list(lyn_demo_hndl, inds, count - 1);
  if (status == OX_LYN_SUCCESS) {
    puts("LYN DEMO APP : LTE/5G indication list cleared successfully.");
  } else {
    printf("LYN DEMO APP : Clear LTE/5G indication list failed with status[%d].\n", status);
  }
  return status;
}

static void lyn_demo_print_heading(const char *title) {
  static constexpr const char *FRAME =
      "###################################################################################";
  puts("\n\n");
  puts(FRAME);
  puts(title);
  puts(FRAME);
}

static void lyn_demo_print_names(const char *title, uint32_t names, const char *(*name_of)(uint32_t)) {
  lyn_demo_print_heading(title);
  for (uint32_t i = 0; i < names; ++i) {
    printf("[%d] - %s\n", static_cast<int>(i), name_of(i));
  }
}

int32_t lyn_demo_print_usage(const int32_t *, uint32_t) {
  lyn_demo_print_heading("############################### LYN DM Options Usage ##############################");
  for (const lyn_demo_option_t &option : lyn_demo_options) {
    if (option.usage != nullptr) {
      puts(option.usage);
    }
  }
  lyn_demo_print_names("############################### LYN DM Indication Metrics #########################",
                       LYN_DEMO_IND_NAMES, lyn_demo_ind_name);
  lyn_demo_print_names("############################### LYN DM Request Metrics ############################",
                       OX_LYN_GET_COUNT, lyn_demo_metric_name);
  // Four characters wider than its frame, deliberately.
  lyn_demo_print_names("############################### LYN Set DM Request Metrics ############################",
                       OX_LYN_SET_COUNT, lyn_demo_control_name);
  puts("\n\n");
  return 0;
}
