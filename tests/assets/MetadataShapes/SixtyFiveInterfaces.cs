namespace Shapes
{
    public interface I00 { }
    public interface I01 { }
    public interface I02 { }
    public interface I03 { }
    public interface I04 { }
    public interface I05 { }
    public interface I06 { }
    public interface I07 { }
    public interface I08 { }
    public interface I09 { }
    public interface I10 { }
    public interface I11 { }
    public interface I12 { }
    public interface I13 { }
    public interface I14 { }
    public interface I15 { }
    public interface I16 { }
    public interface I17 { }
    public interface I18 { }
    public interface I19 { }
    public interface I20 { }
    public interface I21 { }
    public interface I22 { }
    public interface I23 { }
    public interface I24 { }
    public interface I25 { }
    public interface I26 { }
    public interface I27 { }
    public interface I28 { }
    public interface I29 { }
    public interface I30 { }
    public interface I31 { }
    public interface I32 { }
    public interface I33 { }
    public interface I34 { }
    public interface I35 { }
    public interface I36 { }
    public interface I37 { }
    public interface I38 { }
    public interface I39 { }
    public interface I40 { }
    public interface I41 { }
    public interface I42 { }
    public interface I43 { }
    public interface I44 { }
    public interface I45 { }
    public interface I46 { }
    public interface I47 { }
    public interface I48 { }
    public interface I49 { }
    public interface I50 { }
    public interface I51 { }
    public interface I52 { }
    public interface I53 { }
    public interface I54 { }
    public interface I55 { }
    public interface I56 { }
    public interface I57 { }
    public interface I58 { }
    public interface I59 { }
    public interface I60 { }
    public interface I61 { }
    public interface I62 { }
    public interface I63 { }
    public interface I64 { }

    // One interface more than a context lists.
    public class SixtyFive : I00, I01, I02, I03, I04, I05, I06, I07, I08, I09, I10, I11, I12, I13, I14, I15, I16, I17, I18, I19, I20, I21, I22, I23, I24, I25, I26, I27, I28, I29, I30, I31, I32, I33, I34, I35, I36, I37, I38, I39, I40, I41, I42, I43, I44, I45, I46, I47, I48, I49, I50, I51, I52, I53, I54, I55, I56, I57, I58, I59, I60, I61, I62, I63, I64
    {
        public void First() { }
        public void Second() { }
    }
}
