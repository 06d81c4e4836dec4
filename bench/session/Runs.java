import java.util.Arrays;

/** The runs of one row: the quickest, and how far they differ, as in bench/ratio.h. */
final class Runs {
    private final double[] sorted;

    Runs(double... figures) {
        sorted = figures.clone();
        Arrays.sort(sorted);
    }

    int count() {
        return sorted.length;
    }

    double quickest() {
        return sorted[0];
    }

    double median() {
        return quantile(0.5);
    }

    /** The distance between the quartiles, in per cent of the median. */
    double spread() {
        return 100 * (quantile(0.75) - quantile(0.25)) / median();
    }

    private double quantile(double share) {
        return sorted[(int) (share * sorted.length)];
    }
}
