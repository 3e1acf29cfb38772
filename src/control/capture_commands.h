// Recording, photos, mode. Each operation logs its line, if it has one, sends its packets one after
// another and awaits no answer. Result: that of the last camera_send(); for a word that is none of
// the accepted ones, which sends and logs nothing, the non-zero result of the last comparison.
// Thread-safe.
#pragma once

int camera_record(int start);
int camera_shot();
int camera_stop_shooting();
int camera_set_mode(const char* mode);  // "photo", "video"
