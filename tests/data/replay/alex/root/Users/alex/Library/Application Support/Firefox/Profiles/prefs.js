user_pref("a", 1);
