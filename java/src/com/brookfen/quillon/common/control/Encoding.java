package com.brookfen.quillon.common.control;

/** A character set offered for subtitle files: a name to show and the charset to use. */
public final class Encoding {
    private final String name;
    private final String charset;

    public Encoding(String name, String charset) {
        this.name = name;
        this.charset = charset;
    }

    public String getName() {
        return name;
    }

    public String getCharset() {
        return charset;
    }

    @Override
    public boolean equals(Object o) {
        return o instanceof Encoding && ((Encoding) o).charset.equals(charset);
    }

    @Override
    public int hashCode() {
        return charset.hashCode();
    }

    @Override
    public String toString() {
        return name;
    }
}
