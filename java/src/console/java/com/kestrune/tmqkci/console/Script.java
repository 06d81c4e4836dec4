package com.kestrune.tmqkci.console;

import java.io.IOException;
import java.io.LineNumberReader;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** Runs inputs of files and of standard input in order. What cannot be read is an illegal argument, with the reason. */
final class Script {
    private static final String STANDARD_INPUT = "standard input";

    private final Evaluator evaluator;
    private final boolean stopsOnError;

    Script(Evaluator evaluator, boolean stopsOnError) {
        this.evaluator = evaluator;
        this.stopsOnError = stopsOnError;
    }

    /** All inputs of a file, which is read as a whole before the first of them runs. */
    static List<Input> of(Path file) {
        List<Input> inputs = new ArrayList<>();
        try (LineNumberReader in = Source.reader(Files.newInputStream(file), StandardCharsets.UTF_8)) {
            String name = file.toString();
            for (Input input = Source.read(in, name); input != null; input = Source.read(in, name)) {
                inputs.add(input);
            }
        } catch (IOException failure) {
            throw unreadable(file.toString(), StandardCharsets.UTF_8, failure);
        }
        return inputs;
    }

    /** Answers whether all succeeded. */
    boolean run(List<Input> inputs) {
        boolean succeeded = true;
        for (Input input : inputs) {
            if (evaluator.hasEnded() || stopsOnError && !succeeded) {
                break;
            }
            succeeded &= evaluator.run(input);
        }
        return succeeded;
    }

    /** Runs standard input, each input as soon as it is complete; answers whether all succeeded. */
    boolean runStandardInput(boolean named) {
        boolean succeeded = true;
        try (LineNumberReader in = Source.reader(Terminals.in(), Terminals.charset())) {
            while (!evaluator.hasEnded() && (succeeded || !stopsOnError)) {
                Input input = Source.read(in, named ? STANDARD_INPUT : null);
                if (input == null) {
                    break;
                }
                succeeded &= evaluator.run(input);
            }
        } catch (IOException failure) {
            throw unreadable(STANDARD_INPUT, Terminals.charset(), failure);
        }
        return succeeded;
    }

    private static IllegalArgumentException unreadable(String name, Charset charset, IOException failure) {
        return new IllegalArgumentException(failure instanceof CharacterCodingException
                ? name + " is not " + charset + " text" : "cannot read " + name + ": " + Terminals.reason(failure));
    }
}
