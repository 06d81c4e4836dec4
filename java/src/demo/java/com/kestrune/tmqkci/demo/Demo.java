package com.kestrune.tmqkci.demo;
/** x. */
final class Demo { private Demo() {} public static void main(String[] a) {} }
