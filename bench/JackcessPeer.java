// The Java peer of bench/engine_vs_peers.sh: the same work through Jackcess, a Java Jet library,
// when JACKCESS_CLASSPATH names a build of it and its commons-lang3 and commons-logging jars
// (no Debian package holds it). Each command is a whole JVM, as each csdtool command is a
// whole process; `insert` also prints the time of the inserts alone.
//
//   java -cp CLASSPATH JackcessPeer.java insert FILE N   N rows into Maps, one addRow each
//   java -cp CLASSPATH JackcessPeer.java find FILE ID    the Maps row whose mapId is ID
//   java -cp CLASSPATH JackcessPeer.java links FILE ID   the FeatureMaps rows whose FeaId is ID
//   java -cp CLASSPATH JackcessPeer.java all FILE        every row of Maps
//
// The database is opened with auto-sync on (Jackcess's default): each addRow is forced to
// disk before the next, as `csdtool batch --each` commits each line; Jackcess keeps no
// journal, so a kill in the middle of one may leave part of it written.
import com.healthmarketscience.jackcess.Column;
import com.healthmarketscience.jackcess.CursorBuilder;
import com.healthmarketscience.jackcess.Database;
import com.healthmarketscience.jackcess.DatabaseBuilder;
import com.healthmarketscience.jackcess.IndexCursor;
import com.healthmarketscience.jackcess.Row;
import com.healthmarketscience.jackcess.Table;
import java.io.File;

public class JackcessPeer {
  public static void main(String[] args) throws Exception {
    String cmd = args[0];
    try (Database db = new DatabaseBuilder(new File(args[1])).setAutoSync(true).open()) {
      switch (cmd) {
        case "insert": {
          Table maps = db.getTable("Maps");
          int n = Integer.parseInt(args[2]);
          long start = System.nanoTime();
          for (int i = 0; i < n; ++i) maps.addRow(Column.AUTO_NUMBER, "peer" + i + ".dgn", 4, 4);
          System.out.printf("%d inserts in %.1f ms%n", n, (System.nanoTime() - start) / 1e6);
          break;
        }
        case "find": {
          Table maps = db.getTable("Maps");
          Row row = CursorBuilder.findRowByPrimaryKey(maps, Integer.parseInt(args[2]));
          System.out.println(row == null ? "none" : row.get("Name"));
          break;
        }
        case "links": {
          Table links = db.getTable("FeatureMaps");
          IndexCursor c = CursorBuilder.createCursor(links.getIndex("feaId"));
          int n = 0;
          for (Row row : c.newEntryIterable(Integer.parseInt(args[2]))) ++n;
          System.out.println(n + " rows");
          break;
        }
        case "all": {
          StringBuilder out = new StringBuilder();
          for (Row row : db.getTable("Maps")) out.append(row.values()).append('\n');
          System.out.println(out.length() + " characters");
          break;
        }
        default:
          throw new IllegalArgumentException("unknown command " + cmd);
      }
    }
  }
}
