/** The console: evaluates expressions on a server and shows their results, and tells what does not work here. */
package com.kestrune.tmqkci.console;
