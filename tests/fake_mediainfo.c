/* Stands in for the MediaInfo library in tests: it has none of its functions. */
int fake_mediainfo_marker(void) { return 0; }
