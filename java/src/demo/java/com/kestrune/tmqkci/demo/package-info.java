/** A program that shows the native methods at work. It is no part of the product. */
package com.kestrune.tmqkci.demo;
