/**
 * Files of native libraries: where they are looked for, and what keeps one from being loaded. For loading, its failure
 * texts and the console's doctor; not for applications.
 */
package com.kestrune.tmqkci.internal;
